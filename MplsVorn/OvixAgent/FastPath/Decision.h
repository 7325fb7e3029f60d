#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Forwarding/FrameAccounts.h"
#include "Ovix/rewrite/MplsRewrites.h"
#include "Ovix/routing/LabelDecision.h"
#include "Ovix/trace/NamedCounters.h"
#include "State/OvixLfibCounterCollection.h"
#include "State/PortTable.h"
#include "State/Pseudowires.h"

namespace OvixAgent {

/// What is done with a frame that has a label on top.
enum class Action : std::uint8_t {
    none,      ///< left to the forwarder
    drop,      ///< `value`: number of the reason; `egress`: the events (DecidedDrop)
    swap,      ///< one label for one, TC kept; `value`: the label in its place, `egress`: a line
    impose,    ///< `value`: number of a DecidedRewrite that swaps or pushes, and does no more,
               ///< `egress`: a line
    rewrite,   ///< `value`: number of a DecidedRewrite
    circuit,   ///< `value`: number of a DecidedCircuit
    lookup,    ///< `value`: number of a DecidedLookup
    terminate, ///< popped, and the label beneath decides; `value`: number of a set of events
    replicate, ///< `value`: number of a DecidedReplicas
    choice,    ///< `value`: number of a DecidedChoice
    byBeneath, ///< `value`: number of a DecidedByBeneath
};

/// The decision for a label, a quarter of a cache line: what its tables said when it was made.
struct Decision {
    std::uint32_t stamp = 0;  ///< valid while equal to the table's
    std::uint16_t lookup = 0; ///< the events of looking the label up: number of a set
    Action action = Action::none;
    bool isFound : 1 = false;       ///< only then the labels beneath are looked up, too
    bool isLookupKnown : 1 = false; ///< `lookup` and `isFound` are set
    // Of byBeneath: an IPv4 packet beneath its only label needs no record.
    bool popsIpv4 : 1 = false;    ///< it leaves; `egress`: a line
    bool isUniform : 1 = false;   ///< and takes over the label's TTL
    bool looksUpIpv4 : 1 = false; ///< it is routed; `egress`: number of a VRF
    std::uint32_t value = 0;
    std::uint32_t egress = 0;
};
static_assert(sizeof(Decision) == 16);

/// A frame goes no further: the events as a decision has them in its `egress`. Unknown labels are
/// many, so that they have no records.
struct DecidedDrop {
    std::uint16_t events = 0; ///< number of a set
    std::uint16_t all = 0;    ///< the same with those of the lookup

    std::uint32_t packed() const noexcept { return std::uint32_t{all} << 16U | events; }
    static DecidedDrop of(const Decision& decision) noexcept {
        return {static_cast<std::uint16_t>(decision.egress),
                static_cast<std::uint16_t>(decision.egress >> 16U)};
    }
};

/// The reasons of decided drops, by number.
class DropReasons {
  public:
    static constexpr std::size_t most = 256;

    /// Unset when there are too many.
    std::optional<std::uint16_t> numberOf(std::string_view reason) {
        const auto known = std::find(reasons_.begin(), reasons_.end(), reason);
        if (known == reasons_.end() && reasons_.size() == most) {
            return std::nullopt;
        }
        const auto number = static_cast<std::uint16_t>(known - reasons_.begin());
        if (known == reasons_.end()) {
            reasons_.emplace_back(reason);
        }
        return number;
    }
    const std::string& operator[](std::size_t number) const noexcept { return reasons_[number]; }

  private:
    std::vector<std::string> reasons_;
};

/// The label is replaced, or popped, or gets others on top, and the frame leaves; one cache line.
struct alignas(64) DecidedRewrite {
    enum class Kind : std::uint8_t { swap, push, pop };
    static constexpr std::size_t maxLabels = 6;
    /// Of entries written: the labels, an entropy label with its indicator, and the top one.
    static constexpr std::size_t mostBytes = (maxLabels + 3) * Lumo::MplsLabelEntry::size;

    Kind kind = Kind::swap;
    bool isUniform : 1 = false;
    bool isCounted : 1 = false; ///< for the incoming label
    bool exposesTc : 1 = false; ///< of a pop
    bool isToFec : 1 = false;
    bool isToGroup : 1 = false; ///< the line's group address depends on the label
    std::int8_t grows = 0;      ///< bytes that the packet does; negative for a pop
    Ovix::PktHdrType exposed = Ovix::PktHdrType::mpls; ///< by a pop
    std::uint8_t ttl = 0;                              ///< of pushed labels in pipe mode
    std::uint8_t tc = keep;
    std::uint16_t events = 0; ///< number of a set
    std::uint32_t egress = 0; ///< number of a line, or of a DecidedFec
    /// What the entry that takes the top one's place, and those pushed above it, have of it once
    /// its TTL is decremented; and the rest of them.
    std::uint32_t kept = 0;
    std::uint32_t keptAbove = 0;
    std::array<std::uint32_t, maxLabels + 1> entries{};
    /// The record of a push one of whose labels names the flow (RFC 6790); else null.
    Ptr<const Ovix::RewriteInfo> record;

    static constexpr std::uint8_t keep = 0xff;

    /// Whether the label is counted and nothing else.
    bool isPlain() const noexcept { return isCounted && events == 0 && !isToFec && !exposesTc; }
};
static_assert(sizeof(DecidedRewrite) == 64);

/// Which of several a flow takes, by their weights.
struct Shares {
    /// So many are chosen from without looking elsewhere.
    static constexpr std::size_t few = 4;

    void add(std::uint32_t weight) {
        total += weight;
        reciprocal = total > 0 ? ~std::uint64_t{0} / total + 1 : 0;
        if (ends.size() < firstEnds.size()) {
            firstEnds[ends.size()] = static_cast<std::uint32_t>(std::min(total, most));
        }
        ends.push_back(total);
        areFew = ends.size() <= few && total <= most;
    }
    /// As Tessel::weightedChoice: without branches, since nobody can guess what flow comes next.
    std::size_t chosen(std::uint32_t hash) const noexcept {
        return areFew ? chosenOfFew(hash) : chosenOfAll(hash);
    }
    [[gnu::always_inline]] std::size_t chosenOfFew(std::uint32_t hash) const noexcept {
        const std::uint32_t residue = residueOf(hash);
        static_assert(few == 4);
        const auto isBehind = [&](std::size_t i) { return residue >= firstEnds[i] ? 1U : 0U; };
        return isBehind(0) + isBehind(1) + isBehind(2);
    }

    static constexpr std::uint64_t most = ~std::uint32_t{0};
    std::uint64_t total = 0;      ///< at least 1 when one is chosen
    std::uint64_t reciprocal = 0; ///< 2^64 / total, rounded up
    /// The first of `ends`; nothing lies behind those that are not there.
    std::array<std::uint32_t, few - 1> firstEnds{most, most, most};
    bool areFew = true;
    std::vector<std::uint64_t> ends; ///< sums of the weights up to each

  private:
    std::size_t chosenOfAll(std::uint32_t hash) const noexcept {
        const std::uint64_t residue = total <= most ? residueOf(hash) : hash;
        std::size_t before = 0;
        for (const std::uint64_t end : ends) {
            before += residue >= end ? 1 : 0;
        }
        return before;
    }
    /// hash % total, which is exact for any two numbers of 32 bits (Lemire, Kaser and Kurz 2019,
    /// "Faster remainder by direct computation").
    std::uint32_t residueOf(std::uint32_t hash) const noexcept {
        __extension__ using Wide = unsigned __int128;
        return static_cast<std::uint32_t>((Wide{reciprocal * hash} * total) >> 64U);
    }
};

/// Flows toward a FEC are shared by their hash as they leave.
struct DecidedFec {
    Shares shares;
    std::vector<std::uint32_t> lines; ///< their numbers
};

/// The pseudowire's label, and its flow label (RFC 6391) beneath it if there is one, is popped, and
/// the customer's frame leaves by the attachment circuit.
struct DecidedCircuit {
    Port* port = nullptr;
    Pseudowire* pseudowire = nullptr;
    bool isCounted = false;
    std::uint16_t events = 0;
};

/// The label is popped, and the packet beneath routed.
struct DecidedLookup {
    std::uint32_t fib = 0; ///< number of a VRF
    bool isCounted = false;
    std::uint16_t events = 0;

    /// Whether the label is counted and nothing else.
    bool isPlain() const noexcept { return isCounted && events == 0; }
};

/// Every rewrite is done to a replica of its own.
struct DecidedReplicas {
    void add(DecidedRewrite leg) {
        counted += leg.isCounted ? 1 : 0;
        mostGrowth = std::max<std::size_t>(mostGrowth,
                                           static_cast<std::size_t>(std::max<int>(leg.grows, 0)));
        legs.push_back(std::move(leg));
    }

    std::uint16_t events = 0;         ///< number of a set
    std::uint16_t all = 0;            ///< the same with those of the label's lookup
    std::uint32_t counted = 0;        ///< legs that are, for the incoming label
    std::size_t mostGrowth = 0;       ///< bytes that one of them adds
    std::vector<DecidedRewrite> legs; ///< at least one
};

/// Flows are shared by their hash as they came in.
class alignas(64) DecidedChoice {
  public:
    void add(std::uint32_t weight, const Decision& member) {
        if (shares_.ends.size() < few_.size()) {
            few_[shares_.ends.size()] = member;
        }
        shares_.add(weight);
        members_.push_back(member);
    }
    [[gnu::always_inline]] const Decision& member(std::uint32_t hash) const noexcept {
        return shares_.areFew ? few_[shares_.chosenOfFew(hash)] : members_[shares_.chosen(hash)];
    }
    std::span<Decision> members() noexcept { return members_; }
    std::uint64_t totalWeight() const noexcept { return shares_.total; }

  private:
    Shares shares_;
    alignas(64) std::array<Decision, Shares::few> few_; ///< the first members, close at hand
    std::vector<Decision> members_;
};

/// What lies beneath the label matters.
struct DecidedByBeneath {
    void is(Ovix::Beneath beneath, Decision made, std::uint32_t stamp) noexcept {
        made.stamp = stamp;
        decisions[static_cast<std::size_t>(beneath)] = made;
    }

    std::array<Decision, Ovix::beneathKinds> decisions;
};

} // namespace OvixAgent
