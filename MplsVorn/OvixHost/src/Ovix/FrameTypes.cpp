#include "Ovix/LfibCounterActionInfo.h"
#include "Ovix/MplsContext.h"
#include "Ovix/PacketContext.h"
#include "Ovix/RoutingContext.h"
#include "Ovix/RoutingNexthop.h"

// One slab per type for the whole process, whoever makes and releases the objects.
template class Tessel::Slabbed<Ovix::PacketHeader>;
template class Tessel::Slabbed<Ovix::MplsHeaderData>;
template class Tessel::Slabbed<Ovix::VlanTagHeaderData>;
template class Tessel::Slabbed<Ovix::PacketContext>;
template class Tessel::Slabbed<Ovix::RoutingNexthop>;
template class Tessel::Slabbed<Ovix::RoutingNexthops>;
template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RoutingNexthop>>;
template class Tessel::Slabbed<Ovix::RoutingContext>;
template class Tessel::Slabbed<Ovix::RoutingOutput>;
template class Tessel::Slabbed<Ovix::OvixMplsViaSetStack>;
template class Tessel::Slabbed<Ovix::MplsContext>;
template class Tessel::Slabbed<Ovix::LfibCounterActionInfo>;
