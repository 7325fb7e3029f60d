#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Lumo/MplsLabel.h"
#include "Mpls/OvixMplsVia.h"
#include "Tessel/Result.h"

namespace Mpls {

/// Where a via leads, and what it does beside its label operation. A field of its default value is
/// unset. A via that leads to no FEC leads to an interface, to a next hop's address, or to both.
struct ViaOptions {
    Lumo::IntfId intf;              ///< egress interface
    Lumo::IpGenAddr nexthop;        ///< next-hop address
    L3::VrfName vrf;                ///< VRF in which the payload is routed next
    TtlMode ttl = TtlMode::uniform; ///< RFC 3443
    /// 0..7, written on the labels; unset: copied from what is swapped or lies beneath (RFC 5462,
    /// RFC 3270).
    std::optional<std::uint8_t> tc;
    /// 0..7, written on the labels that a swap pushes above the swapped one; unset: as `tc`.
    std::optional<std::uint8_t> pushTc;
    /// A pop writes the label's TC into what it exposes: the TC of the label beneath, or the class
    /// of the packet's DSCP (the uniform model of RFC 3270 section 2.6.3).
    bool tcUniform = false;
    std::uint8_t pushTtl = 0;                     ///< TTL of pushed labels in pipe mode; unset: 255
    PayloadType payload = PayloadType::automatic; ///< what a pop exposes
    std::uint32_t mtu = 0;                        ///< bytes without link header; unset: the port's
    std::uint16_t vlan = 0;                       ///< 1..4094; unset: the port's tagging
    bool controlWord = false; ///< a pseudowire's payload follows a control word (RFC 4385)
    /// A push adds an entropy label beneath the outermost of its labels, that of the tunnel whose
    /// end can remove it (RFC 6790 section 4.2).
    bool entropy = false;

    friend bool operator==(const ViaOptions&, const ViaOptions&) noexcept = default;
};

/// One way out of a route. A value that is legal once it exists: each constructor refuses what no
/// frame can be sent by.
class Via {
  public:
    /// Outermost first.
    using Labels = std::span<const Lumo::MplsLabel>;
    /// What a via record has room for.
    static constexpr std::size_t maxLabels = 33;
    static constexpr std::uint64_t maxFec = (std::uint64_t{1} << 56U) - 1;
    static constexpr std::uint16_t maxVlan = 4094;
    static constexpr std::uint32_t minMtu = 68; ///< RFC 791
    static constexpr std::uint32_t maxMtu = 65535;

    /// Replaces the incoming label by 1 to 33 labels, none of them implicit null (RFC 3032).
    static Tessel::Result<Via> swap(Labels labels, const ViaOptions& options);
    /// Keeps the incoming label, or an IP packet, and puts 1 to 33 labels on top.
    static Tessel::Result<Via> push(Labels labels, const ViaOptions& options);
    /// Swaps or pushes, and sends toward a FEC, 1 to 2^56 - 1, whose next hops the agent has.
    /// `options` give TTL and TC only.
    static Tessel::Result<Via> towardFec(std::uint64_t fec, Lumo::MplsLabelAction action,
                                         Labels labels, const ViaOptions& options);
    /// Removes the label and sends what is beneath.
    static Tessel::Result<Via> pop(const ViaOptions& options);
    /// Removes the label and routes what is beneath in a VRF; the empty name is the default VRF's.
    static Tessel::Result<Via> popAndLookUp(const L3::VrfName& vrf, PayloadType payload);
    /// Sends an IP packet as it is.
    static Tessel::Result<Via> forward(const ViaOptions& options);
    /// A record from a table. Refused when it is not one that a constructor above makes.
    static Tessel::Result<Via> fromRecord(const Ovix::OvixMplsVia& record);

    const Ovix::OvixMplsVia& record() const noexcept { return record_; }

    /// `none` for forward().
    Lumo::MplsLabelAction action() const noexcept { return record_.action(); }
    /// Outermost first; empty unless swapped or pushed.
    std::vector<Lumo::MplsLabel> labels() const;
    ViaOptions options() const;
    /// 0 unless made by towardFec().
    std::uint64_t fec() const noexcept { return record_.fecId(); }
    Lumo::IntfId intf() const noexcept { return record_.intfId; }
    const Lumo::IpGenAddr& nexthop() const noexcept { return record_.nexthop; }
    /// Made by popAndLookUp().
    bool isLookUp() const noexcept;

    friend bool operator==(const Via& a, const Via& b) noexcept {
        return a.record_.isEq(b.record_);
    }

  private:
    explicit Via(const Ovix::OvixMplsVia& record) noexcept : record_(record) {}

    static Tessel::Result<Via> make(Lumo::MplsLabelAction action, Labels labels,
                                    const ViaOptions& options, std::uint64_t fec = 0);

    Ovix::OvixMplsVia record_;
};

/// A via and its share of the flows.
struct WeightedVia {
    Via via;
    std::uint32_t weight = 1;

    friend bool operator==(const WeightedVia&, const WeightedVia&) noexcept = default;
};

/// The same as tables hold it: legal or not.
struct WeightedRecord {
    Ovix::OvixMplsVia via;
    std::uint32_t weight = 1;
};

/// The sum of the weights. Throws std::invalid_argument when there are more than 599 vias or when
/// their weights add up to 2^32 or more.
std::uint64_t checkedWeight(std::span<const WeightedRecord> vias);

std::vector<WeightedRecord> recordsOf(std::span<const WeightedVia> vias);

} // namespace Mpls
