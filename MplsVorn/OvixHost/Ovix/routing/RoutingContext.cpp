#include "Ovix/routing/RoutingContext.h"

#include "Ovix/routing/RewriteInfo.h"

// One slab per type for the whole process, whoever makes and releases the objects.
template class Tessel::Slabbed<Ovix::RoutingNexthop>;
template class Tessel::Slabbed<Ovix::RoutingNexthops>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RoutingNexthop>>;
template class Tessel::Slabbed<Ovix::RoutingContext>;
template class Tessel::Slabbed<Ovix::RoutingOutput>;
template class Tessel::Slabbed<Ovix::LfibCounterActionInfo>;
template class Tessel::Slabbed<Ovix::RewriteInfos>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RewriteInfo>>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::CounterActionInfo>>;

namespace Ovix {

void RoutingContext::popIsPending(const RewriteInfos& pop) {
    if (!pending_) {
        pending_ = Tessel::make<RewriteInfos>();
    }
    pending_->copyFrom(pop);
    if (namedCounters_) {
        namedCounters_->passLast(); // what happened on the way to the label
    }
}

std::size_t RoutingContext::terminatePopped() {
    if (!pending_) {
        return 0;
    }
    const std::size_t popped = pending_->rewrites().size();
    if (!terminated_) {
        terminated_ = std::move(pending_);
    } else {
        terminated_->copyFrom(std::move(pending_));
    }
    pending_.reset();
    return popped;
}

} // namespace Ovix
