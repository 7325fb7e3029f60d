#pragma once

#include "Wire/Ethernet.h"

namespace Wire {

/// The header of a special packet: which VRF and which provider-multicast (PMSI) interface the MPLS
/// packet of a multicast VPN belongs to. It follows an 802.1Q tag with the EtherType
/// `mplsException`:
///
///     0          12        14    16        18       22         30          38
///     +----------+---------+-----+---------+--------+----------+-----------+--------------+
///     | MACs     | 0x8100  | TCI | 0x8139  | VRF id | reserved | PMSI intf | labels, data |
///     +----------+---------+-----+---------+--------+----------+-----------+--------------+
class SpecialPacketHeader : public View<20, const std::uint8_t> {
  public:
    using View::View;

    static constexpr std::size_t pmsiAt = 12;
    static_assert(pmsiAt + sizeof(std::uint64_t) == size);
    /// Where it starts in a frame.
    static constexpr std::size_t offset = Ethernet::size + Tag::size;

    std::uint32_t vrfId() const noexcept { return u32(0); }
    std::uint64_t pmsi() const noexcept { return u64(pmsiAt); }
};

/// What ends the exception frame of a packet that is too big: the egress interface's id and the
/// packet's number in traces, both in host byte order.
struct MtuExceptionTrailer {
    static constexpr std::size_t size = 16;

    std::uint64_t egress = 0;
    std::uint64_t packetId = 0;
};
static_assert(sizeof(MtuExceptionTrailer) == MtuExceptionTrailer::size);
// However short the frame, its copy with the trailer has an EtherType to replace.
static_assert(MtuExceptionTrailer::size >= Ethernet::size);

} // namespace Wire
