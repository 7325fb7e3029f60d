#include "counting/LfibCounterAction.h"

#include "FrameEvents.h"
#include "Tessel/Assert.h"

namespace Ovix {

namespace {

Ptr<Counter::OvixLfibCounterCollection> staticLfibCounterCollection;

} // namespace

void setStaticLfibCounterCollection(Ptr<Counter::OvixLfibCounterCollection> collection) {
    staticLfibCounterCollection = std::move(collection);
}

Ptr<LfibCounterActionImpl> LfibCounterActionImpl::LfibCounterActionImplIs(
    const Ptr<Counter::OvixLfibCounterCollection>& collection,
    const Ptr<LfibCounterActionInfo>& info) {
    return Tessel::make<LfibCounterActionImpl>(collection, info);
}

Ptr<LfibCounterActionImpl>
lfibCounterActionImplFactory(const Ptr<Counter::OvixLfibCounterCollection>& collection,
                             const Ptr<LfibCounterActionInfo>& info) {
    return LfibCounterActionImpl::LfibCounterActionImplIs(collection, info);
}

Ptr<CounterActionImpl> LfibCounterActionImpl::fromInfo(const Ptr<CounterActionInfo>& info) {
    const bool right = info && info->typeName() == LfibCounterActionInfo::infoTypeName;
    Tessel::hardAssert(right, "info");
    return Tessel::make<LfibCounterActionImpl>(
        staticLfibCounterCollection,
        Ptr<LfibCounterActionInfo>(static_cast<LfibCounterActionInfo*>(info.get())));
}

void LfibCounterActionImpl::apply(const Ptr<RoutingContext>&) {
    if (collection_) [[likely]] {
        collection_->counterCollectionIs(info_->routeKey()).countBytes(info_->byteCount());
    }
}

} // namespace Ovix
