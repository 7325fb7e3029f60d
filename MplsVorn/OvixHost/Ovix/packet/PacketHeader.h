#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "Lumo/MplsLabel.h"
#include "Lumo/Pkt.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"
#include "Wire/Ethernet.h"

namespace Ovix {

/// The header kinds that the parser distinguishes.
enum class PktHdrType : std::uint8_t { none, eth, vlanTags, mpls, ipv4, ipv6, udp };

inline constexpr std::size_t pktHdrTypes = 7;

/// The parser's name of a header kind: "Eth", "VlanTags", "Mpls", "Ipv4", "Ipv6", "Udp".
std::string_view pktHdrName(PktHdrType type) noexcept;

/// What a header holds beyond its bytes; the dynamic type follows `type()`.
class PacketHeaderData : public Tessel::Counted {
  public:
    explicit PacketHeaderData(PktHdrType type) noexcept : type_(type) {}
    PktHdrType type() const noexcept { return type_; }

  private:
    PktHdrType type_;
};

/// One parsed header of a frame.
class PacketHeader final : public Tessel::Counted, public Tessel::Slabbed<PacketHeader> {
  public:
    PacketHeader(std::int32_t position, PktHdrType type, const Ptr<Lumo::Pkt>& pkt,
                 std::uint32_t offset, std::uint32_t length, Ptr<PacketHeaderData>&& data) noexcept
        : pkt_(pkt), data_(std::move(data)), position_(position), offset_(offset), length_(length),
          type_(type) {
        assert(position >= 0 && std::size_t{offset} + length <= pkt->bytes());
    }

    /// 0 for the outermost header of the frame.
    std::int32_t position() const noexcept { return position_; }
    PktHdrType pktHdrType() const noexcept { return type_; }
    const Ptr<PacketHeaderData>& headerData() const noexcept { return data_; }

    /// Where the header starts in the packet, and its length, both in bytes and both within it.
    std::uint32_t offset() const noexcept { return offset_; }
    std::uint32_t length() const noexcept { return length_; }

    /// The header's own bytes, as they stood when it was parsed.
    std::span<const std::uint8_t> bytes() const noexcept {
        return pkt_->data().subspan(offset_, length_);
    }
    /// The bytes behind the header, to the end of the packet.
    std::span<const std::uint8_t> payload() const noexcept {
        return pkt_->data().subspan(offset_ + length_);
    }

  private:
    Ptr<Lumo::Pkt> pkt_;
    Ptr<PacketHeaderData> data_;
    std::int32_t position_;
    std::uint32_t offset_;
    std::uint32_t length_;
    PktHdrType type_;
};

/// The parsed label stack of one MPLS header, top first. It reads the entries where they stand in
/// the packet, so it costs the same for a stack of any depth.
class MplsHeaderData final : public PacketHeaderData, public Tessel::Slabbed<MplsHeaderData> {
  public:
    /// `entries` entries from `offset` on must lie within the packet.
    MplsHeaderData(const Ptr<Lumo::Pkt>& pkt, std::uint32_t offset, std::uint32_t entries,
                   bool hashingFlag) noexcept
        : PacketHeaderData(PktHdrType::mpls), pkt_(pkt), offset_(offset), entries_(entries),
          hashingFlag_(hashingFlag) {
        assert(offset + entries * Lumo::MplsLabelEntry::size <= pkt->bytes());
    }

    class Iterator {
      public:
        explicit Iterator(const std::uint8_t* at) noexcept : at_(at) {}
        Lumo::MplsLabelEntry operator*() const noexcept { return Lumo::MplsLabelEntry::load(at_); }
        Iterator& operator++() noexcept {
            at_ += Lumo::MplsLabelEntry::size;
            return *this;
        }
        bool operator==(const Iterator&) const noexcept = default;

      private:
        const std::uint8_t* at_;
    };

    Iterator begin() const noexcept { return Iterator(first()); }
    Iterator end() const noexcept {
        return Iterator(first() + entries_ * Lumo::MplsLabelEntry::size);
    }
    std::size_t entries() const noexcept { return entries_; }
    Wire::Bytes bytes() const noexcept {
        return pkt_->data().subspan(offset_, entries_ * Lumo::MplsLabelEntry::size);
    }
    bool empty() const noexcept { return entries_ == 0; }

    /// Set when the stack alone distinguishes flows, that is when it carries an entropy label
    /// (RFC 6790): path selection then hashes this header and nothing beneath it.
    bool hashingFlag() const noexcept { return hashingFlag_; }

    const Ptr<Lumo::Pkt>& pkt() const noexcept { return pkt_; }

  private:
    const std::uint8_t* first() const noexcept { return pkt_->data().data() + offset_; }

    Ptr<Lumo::Pkt> pkt_;
    std::uint32_t offset_;
    std::uint32_t entries_;
    bool hashingFlag_;
};

/// The header's label stack, or null when its data is absent or of another kind.
inline MplsHeaderData* mplsHeaderData(const PacketHeader& header) noexcept {
    PacketHeaderData* data = header.headerData().get();
    return data != nullptr && data->type() == PktHdrType::mpls ? static_cast<MplsHeaderData*>(data)
                                                               : nullptr;
}

/// The label stack of an "Mpls" header without its first `popped` entries, at the same position;
/// empty when no entry is left.
Ptr<PacketHeader> labelsBeneath(const PacketHeader& header, std::size_t popped);

/// One to three VLAN tags (802.1Q, 802.1ad) that follow each other.
class VlanTagHeaderData final : public PacketHeaderData, public Tessel::Slabbed<VlanTagHeaderData> {
  public:
    static constexpr std::size_t maxTags = Wire::Tag::maxTags;

    using Tag = Wire::Tag;

    explicit VlanTagHeaderData(std::span<const Tag> tags) noexcept;

    /// Outermost first.
    std::span<const Tag> vlanTags() const noexcept { return {tags_.data(), count_}; }

  private:
    std::array<Tag, maxTags> tags_{};
    std::size_t count_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::PacketHeader>;
extern template class Tessel::Slabbed<Ovix::MplsHeaderData>;
extern template class Tessel::Slabbed<Ovix::VlanTagHeaderData>;
