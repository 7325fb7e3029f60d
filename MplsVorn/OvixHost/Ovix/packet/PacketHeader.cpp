#include "Ovix/packet/PacketHeader.h"

#include <algorithm>

namespace Ovix {

std::string_view pktHdrName(PktHdrType type) noexcept {
    static constexpr std::array<std::string_view, pktHdrTypes> names = {
        "", "Eth", "VlanTags", "Mpls", "Ipv4", "Ipv6", "Udp"};
    return names[static_cast<std::size_t>(type)];
}

VlanTagHeaderData::VlanTagHeaderData(std::span<const Tag> tags) noexcept
    : PacketHeaderData(PktHdrType::vlanTags), count_(std::min(tags.size(), maxTags)) {
    std::copy_n(tags.begin(), count_, tags_.begin());
}

} // namespace Ovix
