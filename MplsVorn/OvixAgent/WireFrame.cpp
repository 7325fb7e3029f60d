#include "WireFrame.h"

#include <algorithm>

#include "Lumo/EthAddr.h"
#include "Lumo/NetInt.h"
#include "OffloadedChecksum.h"

namespace OvixAgent {

namespace {

constexpr std::size_t macsSize = 12;
constexpr std::size_t tagSize = 4;

bool hasTagBeside(const tpacket3_hdr& header) noexcept {
    return (header.tp_status & TP_STATUS_VLAN_VALID) != 0;
}

/// Moves the MAC addresses into the four bytes before the frame, and the tag in between.
std::span<std::uint8_t> putTagBack(const RingFrame& received) noexcept {
    const tpacket3_hdr& header = *received.header;
    const bool isTypeKnown = (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0;
    const std::uint16_t type = isTypeKnown ? header.hv1.tp_vlan_tpid : Lumo::EtherType::vlan;
    const auto tci = static_cast<std::uint16_t>(header.hv1.tp_vlan_tci);
    std::uint8_t* const start = received.bytes.data() - tagSize;
    std::copy_n(received.bytes.data(), macsSize, start);
    Lumo::NetU16(type).store(start + macsSize);
    Lumo::NetU16(tci).store(start + macsSize + sizeof type);
    return {start, received.bytes.size() + tagSize};
}

} // namespace

bool toWireFrame(const RingFrame& received, Frame& frame, LiveCounts& counts) noexcept {
    const tpacket3_hdr& header = *received.header;
    if (received.offloaded.segmentation != 0) {
        counts.add(LiveEvent::unsegmented);
        return false;
    }
    if (received.bytes.size() < header.tp_len) {
        counts.add(LiveEvent::truncated);
    } else if (received.offloaded.needsChecksum()) {
        completeChecksum(received.bytes, received.offloaded.checksumStart,
                         received.offloaded.checksumOffset);
    }
    const bool isTagged = hasTagBeside(header) && received.bytes.size() >= macsSize;
    frame.bytes = isTagged ? putTagBack(received) : received.bytes;
    frame.originalLength = header.tp_len + static_cast<std::uint32_t>(isTagged ? tagSize : 0);
    frame.time = {header.tp_sec, header.tp_nsec};
    return true;
}

} // namespace OvixAgent
