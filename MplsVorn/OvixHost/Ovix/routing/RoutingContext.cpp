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
