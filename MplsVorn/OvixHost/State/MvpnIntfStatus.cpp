#include "State/MvpnIntfStatus.h"

#include <array>

#include "Tessel/Exceptions.h"

namespace Routing::Multicast {

MvpnIntfStatus::MvpnIntfStatus(Ptr<const Tessel::TableReader> tables)
    : Entity("mvpnIntfStatus"), tables_(std::move(tables)),
      table_(tables_->table(mountPath, entityTypeName)) {}

MvpnVrfIntfId MvpnIntfStatus::vrfIntfId(Vrf::VrfIdMap::VrfId vrf) const {
    std::uint32_t place = MvpnPlaces::home(vrf);
    for (std::uint32_t distance = 0; distance <= MvpnPlaces::maxDistance; ++distance) {
        const Tessel::TableRef ref = tables_->entry(table_, place);
        if (!ref) {
            break;
        }
        const MvpnVrfIntfId entry = read(place, ref);
        if (entry.vrfId == vrf) {
            return entry;
        }
        place = MvpnPlaces::next(place);
    }
    return {};
}

MvpnVrfIntfId MvpnIntfStatus::read(std::uint32_t place, Tessel::TableRef ref) const {
    constexpr std::string_view what = "multicast VPN interface at unit";
    std::array<std::uint64_t, 2> words{};
    if (tables_->read(ref, Tessel::RecordKind::mvpnIntf, words, what).size() != words.size()) {
        tables_->refuse(what, ref.unit());
    }
    const MvpnVrfIntfId entry{{static_cast<std::uint32_t>(words[0])},
                              Lumo::IntfId::fromValue(words[1])};
    if (MvpnPlaces::distance(place, entry.vrfId) > MvpnPlaces::maxDistance) {
        throw Tessel::CorruptionDetected(name() + ": place " + std::to_string(place) +
                                         " names vrf ID " + std::to_string(entry.vrfId.value));
    }
    return entry;
}

} // namespace Routing::Multicast
