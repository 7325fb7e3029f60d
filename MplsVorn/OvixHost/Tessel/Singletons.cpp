#include "Tessel/Singletons.h"

#include <cassert>
#include <stdexcept>

namespace Tessel {

Singletons& Singletons::instance() {
    static Singletons singletons;
    return singletons;
}

void Singletons::factoryIs(std::string_view typeName, Factory factory) {
    factories_.insert_or_assign(std::string(typeName), factory);
}

Ptr<Entity> Singletons::find(std::string_view typeName) const {
    const auto found = entities_.find(typeName);
    return found != entities_.end() ? found->second : nullptr;
}

Ptr<Entity> Singletons::create(std::string_view typeName) {
    if (Ptr<Entity> existing = find(typeName)) {
        return existing;
    }
    const auto factory = factories_.find(typeName);
    if (factory == factories_.end()) {
        throw std::out_of_range("no factory for singleton type " + std::string(typeName));
    }
    Ptr<Entity> entity = factory->second();
    assert(entity);
    entities_.insert_or_assign(std::string(typeName), entity);
    return entity;
}

void Singletons::singletonDel(std::string_view typeName) {
    if (auto found = entities_.find(typeName); found != entities_.end()) {
        entities_.erase(found);
    }
}

} // namespace Tessel
