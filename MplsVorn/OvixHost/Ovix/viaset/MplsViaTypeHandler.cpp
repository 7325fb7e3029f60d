#include "Ovix/viaset/MplsViaTypeHandler.h"

#include "Tessel/Singletons.h"

namespace Ovix {

void MplsViaTypeHandlerRegistry::registerFactory() {
    Tessel::Singletons::instance().factoryIs(entityTypeName, []() -> Ptr<Tessel::Entity> {
        return Tessel::make<MplsViaTypeHandlerRegistry>();
    });
}

namespace {

const bool registered = (MplsViaTypeHandlerRegistry::registerFactory(), true);

} // namespace

} // namespace Ovix
