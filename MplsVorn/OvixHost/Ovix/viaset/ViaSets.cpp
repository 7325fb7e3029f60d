#include "Ovix/viaset/ViaSets.h"

#include "Ovix/viaset/MplsViaTypeHandler.h"
#include "Tessel/Singletons.h"

// One slab per type for the whole process, whoever makes and releases the objects.
template class Tessel::Slabbed<Ovix::OvixMplsViaSetStack>;
template class Tessel::Slabbed<Ovix::MplsContext>;
template class Tessel::Slabbed<Ovix::OvixLfibViaSet>;
template class Tessel::Slabbed<Ovix::OvixMulticastDecapViaSet>;
template class Tessel::Slabbed<Ovix::OvixHwViaSet>;

namespace Ovix {

OvixHwViaSet::OvixHwViaSet(Ptr<const Mpls::Hardware::Adjacency> adjacency,
                           const Ptr<HwStatusViaHelper>& helper, bool useBackups)
    : adjacency_(std::move(adjacency)), useBackups_(useBackups) {
    takeUsable(helper);
    // The link of the last via may go down before whoever programs the adjacency marks it.
    if (!hasValidVia() && !useBackups_ && !adjacency_->entries(true).empty()) {
        useBackups_ = true;
        takeUsable(helper);
    }
}

void OvixHwViaSet::takeUsable(const Ptr<HwStatusViaHelper>& helper) {
    count_ = 0;
    totalWeight_ = 0;
    std::uint16_t index = 0;
    for (const Mpls::Hardware::Adjacency::Entry& entry : adjacency_->entries(useBackups_)) {
        if (!helper || helper->usable(entry.intf)) {
            usable_[count_++] = index;
            totalWeight_ += entry.weight;
        }
        ++index;
    }
    assert(count_ <= usable_.size());
}

void MplsViaTypeHandlerRegistry::registerFactory() {
    Tessel::Singletons::instance().factoryIs(entityTypeName, []() -> Ptr<Tessel::Entity> {
        return Tessel::make<MplsViaTypeHandlerRegistry>();
    });
}

namespace {

const bool registered = (MplsViaTypeHandlerRegistry::registerFactory(), true);

} // namespace

} // namespace Ovix
