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
    std::uint16_t index = 0;
    for (const Mpls::Hardware::Adjacency::Entry& entry : adjacency_->entries(useBackups)) {
        if (!helper || helper->usable(entry.intf)) {
            usable_[count_++] = index;
            totalWeight_ += entry.weight;
        }
        ++index;
    }
}

} // namespace Ovix
