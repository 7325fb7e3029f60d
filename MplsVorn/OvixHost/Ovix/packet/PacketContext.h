#pragma once

#include <array>
#include <cassert>
#include <cstdint>
#include <optional>

#include "Lumo/Pkt.h"
#include "Ovix/packet/PacketHeader.h"
#include "Tessel/Ptr.h"
#include "Tessel/Slab.h"

namespace Ovix {

class OvixNamedCounters;
class PacketContext;

/// The headers of one frame, parsed lazily: asking for a header parses as far as needed. Bytes that
/// do not make a whole, sane header end the parse; what was parsed before stays.
class ParsedPacket {
  public:
    /// More headers than this are not parsed.
    static constexpr std::int32_t maxHeaders = 16;

    /// The header at a position; empty when the frame has none there.
    Ptr<PacketHeader> header(std::int32_t position) {
        if (position >= count_ && !complete()) {
            parseUpTo(position);
        }
        return position >= 0 && position < count_ ? headers_[static_cast<std::size_t>(position)]
                                                  : nullptr;
    }

    /// The first header of a type among those parsed so far; empty when there is none.
    Ptr<PacketHeader> firstHeaderOfType(PktHdrType type) const noexcept;

    /// Completes a lazy parse.
    void maybeDoFullParse();

    bool complete() const noexcept { return nextType_ == PktHdrType::none; }
    std::int32_t headers() const noexcept { return count_; }

  private:
    friend class PacketContext;
    friend class PacketParser;

    void parseUpTo(std::int32_t position);
    void restart(Ptr<Lumo::Pkt> pkt, PktHdrType first) noexcept;

    Ptr<Lumo::Pkt> pkt_;
    std::array<Ptr<PacketHeader>, maxHeaders> headers_;
    std::int32_t count_ = 0;
    std::uint32_t nextOffset_ = 0;
    PktHdrType nextType_ = PktHdrType::none;
};

/// Parses headers. Stateless; every length is checked before it is read.
class PacketParser : public Tessel::Counted {
  public:
    /// The kind of header that a label stack's payload starts with, by its first nibble; none
    /// without a byte.
    static PktHdrType beneathLabels(Wire::Bytes payload) noexcept;
    /// The kind of header that an EtherType announces; none when it is none that is parsed.
    static PktHdrType announcedBy(std::uint16_t etherType) noexcept;
    /// The length of the "Ipv4" or "Ipv6" header that starts the bytes, extension headers included;
    /// 0 when it is none that is parsed.
    static std::size_t ipHeaderLength(PktHdrType type, Wire::Bytes bytes) noexcept;

    /// Parses the next header of `parsed` if there is one.
    static void parseNext(ParsedPacket& parsed);
};

/// The traffic class (RFC 5462) of a frame, from its classification input.
class TrafficClassifier {
  public:
    /// `input` is what `PacketContext::classificationInput` gives.
    std::uint8_t trafficClass(std::uint8_t input) const noexcept { return input; }
};

/// The class, 0 to 7, of a packet that starts with a header of that type: the 802.1p priority of a
/// tagged frame, else the top label's TC or an IP packet's precedence (the upper three bits of its
/// DSCP), else 0.
std::uint8_t classOf(PktHdrType first, Wire::Bytes packet) noexcept;

/// What a replaced packet is parsed as.
enum class PktCtxParse : std::uint8_t { keep = 0, reparse = 1 };

/// A frame's bytes and the state of its parse.
class PacketContext final : public Tessel::Counted, public Tessel::Slabbed<PacketContext> {
  public:
    /// `first` is the kind of the header that the packet starts with.
    explicit PacketContext(Ptr<Lumo::Pkt> pkt, PktHdrType first = PktHdrType::eth) noexcept;

    const Ptr<Lumo::Pkt>& pkt() const noexcept { return pkt_; }
    const Ptr<Lumo::Pkt>& getPkt() const noexcept { return pkt_; }

    /// The headers of the packet as it is now; parsed again after a change.
    [[gnu::always_inline]] ParsedPacket& parsedPkt() noexcept {
        if (stale_) {
            assert(pkt_);
            parsed_.restart(pkt_, outerType_);
            stale_ = false;
        }
        return parsed_;
    }

    /// What the packet starts with: rewrites that add or remove a header set it, which also makes
    /// the parse stale.
    PktHdrType outerType() const noexcept { return outerType_; }
    void outerTypeIs(PktHdrType type) noexcept {
        outerType_ = type;
        stale_ = true;
    }

    /// Gives the context another packet; with `reparse` it is parsed again from the same outer
    /// type.
    void replacePacket(Ptr<Lumo::Pkt> pkt, PktCtxParse parse) noexcept;
    /// Parses the packet again as an Ethernet frame.
    void initializeParsedPkt(const Ptr<PacketParser>& parser) noexcept;

    /// A flow hash (RFC 7325 section 2.4.5): the labels that are not special-purpose, up to an
    /// entropy label if there is one, else down to the addresses and ports of an IP payload; never
    /// TC, S or TTL. Computed once, on the frame as it is when first asked.
    std::uint32_t hash();

    /// What names the frame in trace lines, and where its events before routing are counted; null:
    /// nowhere. The counters are not owned: they outlive every frame.
    std::uint64_t packetId() const noexcept { return packetId_; }
    OvixNamedCounters* namedCounters() const noexcept { return namedCounters_; }
    void receivedAs(std::uint64_t packetId, OvixNamedCounters* counters) noexcept {
        packetId_ = packetId;
        namedCounters_ = counters;
    }

    const TrafficClassifier& trafficClassifier() const noexcept { return classifier_; }
    /// 0 to 7: the 802.1p priority of a tagged frame, else the top label's TC or an IP packet's
    /// precedence (the upper three bits of its DSCP), else 0.
    std::uint8_t classificationInput() const noexcept;

    /// Whether this router has already taken its one decrement from the frame's TTL (RFC 3443).
    bool ttlDecremented() const noexcept { return ttlDecremented_; }
    void ttlDecrementedIs(bool done) noexcept { ttlDecremented_ = done; }

  private:
    Ptr<Lumo::Pkt> pkt_;
    ParsedPacket parsed_;
    std::uint64_t packetId_ = 0;
    OvixNamedCounters* namedCounters_ = nullptr;
    std::optional<std::uint32_t> hash_;
    PktHdrType outerType_;
    bool stale_ = true;
    bool ttlDecremented_ = false;
    TrafficClassifier classifier_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::PacketContext>;
