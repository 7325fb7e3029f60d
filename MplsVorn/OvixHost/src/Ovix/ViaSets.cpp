#include "Ovix/OvixHwViaSet.h"
#include "Ovix/OvixLfibViaSet.h"
#include "Ovix/OvixMulticastDecapViaSet.h"

template class Tessel::Slabbed<Ovix::OvixLfibViaSet>;
template class Tessel::Slabbed<Ovix::OvixMulticastDecapViaSet>;
template class Tessel::Slabbed<Ovix::OvixHwViaSet>;

namespace Ovix {

OvixHwViaSet::OvixHwViaSet(Ptr<const Mpls::Hardware::Adjacency> adjacency,
                           const Ptr<HwStatusViaHelper>& helper, bool useBackups)
    : adjacency_(std::move(adjacency)), useBackups_(useBackups) {
    const std::uint32_t entries = adjacency_->entries(useBackups);
    for (std::uint32_t i = 0; i < entries; ++i) {
        if (!helper || helper->usable(adjacency_->intfId(useBackups, i))) {
            usable_[count_++] = static_cast<std::uint16_t>(i);
            totalWeight_ += adjacency_->weight(useBackups, i);
        }
    }
}

} // namespace Ovix
