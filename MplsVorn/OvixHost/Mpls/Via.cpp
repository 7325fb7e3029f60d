#include "Mpls/Via.h"

#include <array>
#include <string>

#include "Tessel/Fib/FecId.h"

namespace Mpls {

using Lumo::MplsLabelAction;
using Ovix::OvixMplsVia;
using Ovix::TrafficClassField;
using Tessel::Refused;
using Tessel::Result;

static_assert(Via::maxFec == Tessel::Fib::FecId::maxOfInterface);

namespace {

constexpr std::size_t labelSize = Lumo::UnboundedMplsLabelOperation::packedLabelSize;
static_assert(Via::maxLabels * labelSize <= decltype(OvixMplsVia::labels)::maxSize);

bool imposesLabels(const OvixMplsVia& record) noexcept {
    return record.action() == MplsLabelAction::push || record.action() == MplsLabelAction::swap;
}

Refused depthRefused(std::size_t depth) {
    return Refused{std::to_string(depth) + " labels given, push and swap take 1 to " +
                   std::to_string(Via::maxLabels)};
}

Result<void> checkLabels(const OvixMplsVia& record) {
    const std::size_t bytes = record.labels.size();
    if (bytes % labelSize != 0) {
        return Refused{"the label stack of a via ends within a label"};
    }
    const std::size_t depth = bytes / labelSize;
    if (!imposesLabels(record)) {
        return depth == 0 ? Result<void>() : Refused{"only push and swap take labels"};
    }
    if (depth == 0 || depth > Via::maxLabels) {
        return depthRefused(depth);
    }
    for (std::size_t i = 0; i < depth; ++i) {
        const std::uint32_t label = record.labelOperation().value(i);
        if (label > Lumo::MplsLabel::max) {
            return Refused{"label " + std::to_string(label) + " has more than 20 bits"};
        }
        if (label == Lumo::implicitNull.value()) {
            return Refused{"label 3 (implicit null) never stands in a frame (RFC 3032 section "
                           "2.1)"};
        }
    }
    return {};
}

Result<void> checkFields(const OvixMplsVia& record) {
    if (record.labelAction > static_cast<std::uint32_t>(MplsLabelAction::swap)) {
        return Refused{"label action " + std::to_string(record.labelAction) + " is unknown"};
    }
    if (record.payloadType > static_cast<std::uint32_t>(PayloadType::automatic)) {
        return Refused{"payload type " + std::to_string(record.payloadType) + " is unknown"};
    }
    if (record.ttlMode > static_cast<std::uint32_t>(TtlMode::pipe)) {
        return Refused{"TTL mode " + std::to_string(record.ttlMode) + " is unknown"};
    }
    if (record.pushTtl > 255) {
        return Refused{"push TTL " + std::to_string(record.pushTtl) + " is not 1 to 255"};
    }
    if (record.nexthopVlan > Via::maxVlan) {
        return Refused{"VLAN " + std::to_string(record.nexthopVlan) + " is not 1 to 4094"};
    }
    return record.entropy && record.action() != MplsLabelAction::push
               ? Refused{"an entropy label is added by a push only (RFC 6790 section 4.2)"}
               : Result<void>();
}

/// What no frame could show is refused.
Result<void> checkTrafficClass(const OvixMplsVia& record) {
    if (!TrafficClassField::isLegal(record.trafficClass)) {
        return Refused{"traffic class " + std::to_string(record.trafficClass) + " is not 0 to 7"};
    }
    const TrafficClassField field(record.trafficClass);
    if (!imposesLabels(record) && field.tc()) {
        return Refused{"tc " + std::to_string(*field.tc()) +
                       " goes with push and swap, which write labels"};
    }
    if (!imposesLabels(record) && record.pushTtl != 0) {
        return Refused{"push-ttl " + std::to_string(record.pushTtl) +
                       " goes with push and swap, which write labels"};
    }
    if (field.uniform() && record.action() != MplsLabelAction::pop) {
        return Refused{"tc uniform goes with pop"};
    }
    const bool pushesAboveSwapped =
        record.action() == MplsLabelAction::swap && record.labels.size() > labelSize;
    if (field.pushedTc() && !pushesAboveSwapped) {
        return Refused{"push-tc " + std::to_string(*field.pushedTc()) +
                       " goes with a swap to several labels"};
    }
    return {};
}

bool hasNextHop(const OvixMplsVia& record) noexcept {
    return !record.intfId.empty() || record.nexthop.family() != Lumo::IpFamily::none;
}

Result<void> checkFec(const OvixMplsVia& record) {
    if (record.fecId() == 0) {
        return {};
    }
    if (record.fecId() > Via::maxFec) {
        return Refused{"FEC id " + std::to_string(record.fecId()) + " has more than 56 bits"};
    }
    if (!imposesLabels(record)) {
        return Refused{"only push and swap lead to a fec"};
    }
    const bool hasMore = hasNextHop(record) || !record.vrfName.empty() || record.nexthopMtu != 0 ||
                         record.nexthopVlan != 0 || record.controlWord;
    return hasMore
               ? Refused{"the next hops of a fec have its interface, nexthop, vrf, mtu and vlan"}
               : Result<void>();
}

bool leadsOut(const OvixMplsVia& record) noexcept {
    return hasNextHop(record) || record.fecId() != 0;
}

void labelsIs(OvixMplsVia& record, Via::Labels labels) {
    std::array<char, Via::maxLabels * labelSize> packed;
    std::size_t size = 0;
    for (const Lumo::MplsLabel label : labels) {
        for (const unsigned shift : {16U, 8U, 0U}) {
            packed[size++] = static_cast<char>(label.value() >> shift);
        }
    }
    record.labels = std::string_view(packed.data(), size);
}

OvixMplsVia recordOf(MplsLabelAction action, const ViaOptions& options,
                     std::uint64_t fec) noexcept {
    OvixMplsVia record;
    record.labelAction = static_cast<std::uint32_t>(action);
    record.trafficClass =
        TrafficClassField::of(options.tc, options.pushTc, options.tcUniform).value();
    record.controlWord = options.controlWord;
    record.entropy = options.entropy;
    record.payloadType = static_cast<std::uint32_t>(options.payload);
    record.ttlMode = static_cast<std::uint32_t>(options.ttl);
    record.pushTtl = options.pushTtl;
    record.intfId = options.intf;
    record.nexthop = options.nexthop;
    record.vrfName = options.vrf;
    record.fecIdHigh = static_cast<std::uint32_t>(fec >> 32U);
    record.fecIdLow = static_cast<std::uint32_t>(fec);
    record.nexthopMtu = options.mtu;
    record.nexthopVlan = options.vlan;
    return record;
}

/// Whether an address can be that of a neighbour: neither a group, nor broadcast, loopback,
/// unspecified or reserved (RFC 1122 section 3.2.1.3, RFC 4291 section 2).
bool isOneStation(const Lumo::IpGenAddr& address) noexcept {
    const std::uint8_t first = address.bytes()[0];
    if (address.family() == Lumo::IpFamily::ipv4) {
        return first != 0 && first != 127 && first < 224;
    }
    const bool isLowest = address.masked(127).empty(); // :: and ::1
    return first != 0xff && !isLowest;
}

/// What a table may hold already, but nobody can want.
Result<void> checkVain(const OvixMplsVia& record) {
    if (record.nexthop.family() != Lumo::IpFamily::none && !isOneStation(record.nexthop)) {
        return Refused{"next hop " + record.nexthop.text() + " is not the address of one station"};
    }
    if (!record.vrfName.empty()) {
        return Refused{"vrf goes with a lookup, which leads to no interface, nexthop or fec"};
    }
    const bool pops = record.action() == MplsLabelAction::pop;
    if (!pops && record.payload() != PayloadType::automatic) {
        return Refused{"only a pop exposes a payload"};
    }
    const bool copiesClass = TrafficClassField(record.trafficClass).uniform();
    if (copiesClass && record.payload() == PayloadType::ethernet) {
        return Refused{"tc uniform writes the class of a packet (RFC 3270), and an Ethernet frame "
                       "has none"};
    }
    if (record.pushTtl == 0) {
        return {};
    }
    if (record.ttlMode != static_cast<std::uint32_t>(TtlMode::pipe)) {
        return Refused{"push-ttl " + std::to_string(record.pushTtl) +
                       " goes with ttl pipe; in uniform mode pushed labels have the packet's TTL "
                       "(RFC 3443)"};
    }
    const bool pushesLabels =
        record.action() == MplsLabelAction::push || record.labels.size() > labelSize;
    return pushesLabels ? Result<void>()
                        : Refused{"push-ttl " + std::to_string(record.pushTtl) +
                                  " goes with a push, and with a swap to several labels"};
}

} // namespace

Result<Via> Via::make(MplsLabelAction action, Labels labels, const ViaOptions& options,
                      std::uint64_t fec) {
    if (labels.size() > maxLabels) {
        return depthRefused(labels.size());
    }
    OvixMplsVia record = recordOf(action, options, fec);
    labelsIs(record, labels);
    if (!leadsOut(record)) {
        return Refused{"leads nowhere: interface, nexthop or fec is needed"};
    }
    auto via = fromRecord(record);
    const auto wanted = via ? checkVain(record) : Result<void>();
    return wanted ? std::move(via) : wanted.refused();
}

Result<Via> Via::swap(Labels labels, const ViaOptions& options) {
    return make(MplsLabelAction::swap, labels, options);
}

Result<Via> Via::push(Labels labels, const ViaOptions& options) {
    return make(MplsLabelAction::push, labels, options);
}

Result<Via> Via::towardFec(std::uint64_t fec, MplsLabelAction action, Labels labels,
                           const ViaOptions& options) {
    return make(action, labels, options, fec);
}

Result<Via> Via::pop(const ViaOptions& options) {
    return make(MplsLabelAction::pop, {}, options);
}

Result<Via> Via::popAndLookUp(const L3::VrfName& vrf, PayloadType payload) {
    ViaOptions options;
    options.vrf = vrf.empty() ? L3::VrfName(L3::defaultVrf) : vrf;
    options.payload = payload;
    return fromRecord(recordOf(MplsLabelAction::pop, options, 0));
}

Result<Via> Via::forward(const ViaOptions& options) {
    return make(MplsLabelAction::none, {}, options);
}

Result<Via> Via::fromRecord(const OvixMplsVia& record) {
    for (const auto check : {checkFields, checkLabels, checkTrafficClass, checkFec}) {
        if (const Result<void> legal = check(record); !legal) {
            return legal.refused();
        }
    }
    const Via via(record);
    if (!leadsOut(record) && !via.isLookUp()) {
        return Refused{"the via leads nowhere"};
    }
    return via;
}

bool Via::isLookUp() const noexcept {
    return action() == MplsLabelAction::pop && !record_.vrfName.empty() && !leadsOut(record_);
}

std::vector<Lumo::MplsLabel> Via::labels() const {
    const auto operation = record_.labelOperation();
    std::vector<Lumo::MplsLabel> labels;
    labels.reserve(operation.depth());
    for (std::size_t i = 0; i < operation.depth(); ++i) {
        labels.push_back(operation.label(i));
    }
    return labels;
}

ViaOptions Via::options() const {
    ViaOptions options;
    options.intf = record_.intfId;
    options.nexthop = record_.nexthop;
    options.vrf = record_.vrfName;
    options.ttl = record_.ttl();
    const TrafficClassField classes(record_.trafficClass);
    options.tc = classes.tc();
    options.pushTc = classes.pushedTc();
    options.tcUniform = classes.uniform();
    options.pushTtl = static_cast<std::uint8_t>(record_.pushTtl);
    options.payload = record_.payload();
    options.mtu = record_.nexthopMtu;
    options.vlan = record_.nexthopVlan;
    options.controlWord = record_.controlWord;
    options.entropy = record_.entropy;
    return options;
}

} // namespace Mpls
