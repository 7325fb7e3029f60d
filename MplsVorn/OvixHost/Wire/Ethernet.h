#pragma once

#include <algorithm>
#include <array>

#include "Lumo/IpGenAddr.h"
#include "Wire/View.h"

namespace Wire {

namespace EtherType {
inline constexpr std::uint16_t ipv4 = 0x0800;
inline constexpr std::uint16_t arp = 0x0806;
inline constexpr std::uint16_t vlan = 0x8100; ///< an 802.1Q tag
/// The plugin's own: an MPLS frame handed to the control plane as an exception.
inline constexpr std::uint16_t mplsException = 0x8139;
inline constexpr std::uint16_t ipv6 = 0x86dd;
inline constexpr std::uint16_t mpls = 0x8847;
inline constexpr std::uint16_t macControl = 0x8808;   ///< PAUSE and its like, of one link (802.3)
inline constexpr std::uint16_t mplsUpstream = 0x8848; ///< upstream-assigned labels (RFC 5332)
inline constexpr std::uint16_t serviceVlan = 0x88a8;  ///< an 802.1ad tag
inline constexpr std::uint16_t stackedVlan = 0x9100;  ///< an outer tag before 802.1ad

/// Smaller values are the length of an IEEE 802.3 frame.
inline constexpr std::uint16_t longestLength = 1500;

constexpr bool isTag(std::uint16_t type) noexcept {
    return type == vlan || type == serviceVlan || type == stackedVlan;
}
constexpr bool isMpls(std::uint16_t type) noexcept {
    return type == mpls || type == mplsUpstream;
}
} // namespace EtherType

/// An Ethernet header (IEEE 802.3):
///
///     0             6             12          14
///     +-------------+-------------+-----------+------------------------+
///     | destination | source      | EtherType | tags or payload        |
///     +-------------+-------------+-----------+------------------------+
template <typename Byte>
class BasicEthernet : public View<14, Byte> {
  public:
    using View<14, Byte>::View;

    static constexpr std::size_t macSize = 6;
    static constexpr std::size_t macsSize = 2 * macSize;
    static constexpr std::size_t etherTypeAt = macsSize;
    static constexpr std::size_t etherTypeSize = 2;
    static_assert(etherTypeAt + etherTypeSize == BasicEthernet::size);

    Lumo::EthAddr destination() const noexcept { return mac(0); }
    Lumo::EthAddr source() const noexcept { return mac(macSize); }
    std::uint16_t etherType() const noexcept { return this->u16(etherTypeAt); }
    /// Addressed to a group of stations or to all.
    bool isToGroup() const noexcept { return (this->u8(0) & 1U) != 0; }

    void macsAre(const Lumo::EthAddr& destination, const Lumo::EthAddr& source) const noexcept {
        std::copy(destination.begin(), destination.end(), this->at(0, macSize));
        std::copy(source.begin(), source.end(), this->at(macSize, macSize));
    }
    void etherTypeIs(std::uint16_t type) const noexcept { this->put16(etherTypeAt, type); }

  private:
    Lumo::EthAddr mac(std::size_t offset) const noexcept {
        Lumo::EthAddr address;
        std::copy_n(this->at(offset, macSize), macSize, address.begin());
        return address;
    }
};
using Ethernet = BasicEthernet<const std::uint8_t>;
using EthernetWriter = BasicEthernet<std::uint8_t>;

/// A VLAN tag (IEEE 802.1Q). The type that announces it is where the EtherType was, and the
/// EtherType follows the tag:
///
///     +-----------+-----------------------------+
///     | TPID      | priority  | DEI |  VLAN id  |
///     +-----------+-----------------------------+
///       16 bits     3           1     12
struct Tag {
    static constexpr std::size_t size = 4;
    /// A frame with more tags is not looked into.
    static constexpr std::size_t maxTags = 3;
    static constexpr std::uint16_t vlanIdMask = 0x0fff;

    Lumo::NetU16 tpid;
    Lumo::NetU16 tci;

    constexpr std::uint16_t vlanId() const noexcept { return tci.value() & vlanIdMask; }
    constexpr std::uint8_t priority() const noexcept {
        return static_cast<std::uint8_t>(tci.value() >> 13U);
    }
    void store(std::uint8_t* to) const noexcept {
        tpid.store(to);
        tci.store(to + sizeof tpid);
    }
    friend constexpr bool operator==(const Tag&, const Tag&) noexcept = default;
};
static_assert(sizeof(Tag) == Tag::size);

/// Walks the tags of a frame from the outermost. `behind` starts right behind the `etherType` that
/// may announce a tag.
class TagWalk {
  public:
    TagWalk(std::uint16_t etherType, Bytes behind) noexcept
        : rest_(behind), etherType_(etherType) {}

    /// False, with nothing changed, when no whole tag follows or all that a frame may have are
    /// passed.
    bool next(Tag& tag) noexcept {
        if (!EtherType::isTag(etherType_) || rest_.size() < Tag::size || left_ == 0) {
            return false;
        }
        --left_;
        tag = {Lumo::NetU16(etherType_), Lumo::NetU16::load(rest_.data())};
        etherType_ = Lumo::NetU16::load(rest_.data() + sizeof tag.tci).value();
        rest_ = rest_.subspan(Tag::size);
        return true;
    }

    /// The type of what follows the tags passed, and the bytes from there on.
    std::uint16_t etherType() const noexcept { return etherType_; }
    Bytes rest() const noexcept { return rest_; }

  private:
    Bytes rest_;
    std::size_t left_ = Tag::maxTags;
    std::uint16_t etherType_;
};

/// What follows a frame's Ethernet header and tags, and its type: nothing, of type 0, of a frame
/// without a whole header.
inline TagWalk behindTags(Bytes frame) noexcept {
    const Ethernet header(frame);
    TagWalk walk(header ? header.etherType() : 0, header ? frame.subspan(Ethernet::size) : Bytes());
    for (Tag tag; walk.next(tag);) {
    }
    return walk;
}

/// The length of a frame's Ethernet header and tags, which no MTU counts; all of a frame without a
/// whole header.
inline std::size_t linkLength(Bytes frame) noexcept {
    return frame.size() - behindTags(frame).rest().size();
}

} // namespace Wire
