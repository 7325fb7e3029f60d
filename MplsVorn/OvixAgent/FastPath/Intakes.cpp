#include "FastPath/Intakes.h"

#include <algorithm>
#include <array>

#include "Wire/Ethernet.h"

namespace OvixAgent {

using Wire::Ethernet;

namespace {

constexpr Lumo::EthAddr wholeAddress{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

/// The address as the first of eight bytes.
std::uint64_t maskOf(const Lumo::EthAddr& address) noexcept {
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, address.data(), address.size());
    return bytes;
}

bool isForPort(const std::uint8_t* frame, const Port& port) noexcept {
    return (frame[0] & 1U) != 0 || port.anyMac ||
           std::memcmp(frame, port.mac.data(), Ethernet::macSize) == 0;
}

} // namespace

void Intakes::restart() {
    const auto isIgnored = [&](std::uint16_t etherType) {
        const auto& steps = inputSteps_->steps();
        return std::all_of(steps.begin(), steps.end(),
                           [&](const auto& step) { return step->ignores(etherType); });
    };
    const bool ignoresLabels = isIgnored(Wire::EtherType::mpls);
    const bool ignoresIp = isIgnored(Wire::EtherType::ipv4) && isIgnored(Wire::EtherType::ipv6);
    intakes_.clear();
    for (PortIndex i = 0; i < tables_->ports.ports().size(); ++i) {
        intakes_.push_back(intakeOf(i, ignoresLabels, ignoresIp));
    }
    seen_ = tables_->ports.changes();
}

Intake Intakes::intakeOf(PortIndex index, bool ignoresLabels, bool ignoresIp) const {
    const Port& port = tables_->ports.ports()[index];
    const auto fib = tables_->vrfs->number(port.vrf.view());
    Intake intake;
    intake.isLeftOut =
        leftOut_ && (index == *leftOut_ || tables_->ports.parentOf(index) == *leftOut_);
    intake.stationMask = maskOf(port.anyMac ? Lumo::EthAddr{1} : wholeAddress);
    intake.station = port.anyMac ? 0 : maskOf(port.mac);
    intake.takesLabels = ignoresLabels && port.mpls && !intake.isLeftOut;
    intake.takesIp = ignoresIp && fib && port.routesIp && !intake.isLeftOut;
    intake.isCircuit = tables_->pseudowires.isCircuit(index);
    intake.hasVlans = tables_->ports.hasVlans(index);
    intake.isVlan = port.tagging.kind == Tagging::Kind::subInterface;
    intake.fib = fib.value_or(0);
    const bool isPlain = !intake.isCircuit && !intake.isVlan && !intake.hasVlans;
    if (isPlain && intake.takesLabels) {
        intake.plainLabels = Lumo::swapToNet(Wire::EtherType::mpls);
    }
    intake.takesPlainIp = isPlain && intake.takesIp && port.reversePath == ReversePath::off;
    return intake;
}

std::optional<std::uint16_t> Intakes::takeIn(PacketWork& work) const {
    const Intake& intake = intakes_[work.port];
    if (intake.isVlan || (intake.hasVlans && !findSubInterface(work))) [[unlikely]] {
        return std::nullopt;
    }
    const WritableFrame& frame = *work.frame;
    const std::uint32_t link = static_cast<std::uint32_t>(Ethernet::size) + work.tagBytes;
    if (frame.size < link + Lumo::MplsLabelEntry::size || intakes_[work.port].isCircuit ||
        !isForPort(frame.bytes, tables_->ports.ports()[work.port])) {
        return std::nullopt;
    }
    work.packet = frame.bytes + link;
    work.length = frame.size - link;
    return Lumo::NetU16::load(work.packet - Ethernet::etherTypeSize).value();
}

/// False when the frame's tags are not just those of a sub-interface.
bool Intakes::findSubInterface(PacketWork& work) const {
    const Wire::Bytes frame{work.frame->bytes, work.frame->size};
    Wire::TagWalk walk(Ethernet(frame).etherType(), frame.subspan(Ethernet::size));
    std::array<std::uint16_t, Wire::Tag::maxTags> vlans{};
    std::size_t count = 0;
    for (Wire::Tag tag; walk.next(tag);) {
        vlans[count++] = tag.vlanId();
    }
    const auto taker = tables_->ports.taker(work.port, std::span(vlans).first(count));
    if (!taker || taker->ownTags != count) {
        return false;
    }
    work.port = taker->port;
    work.tagBytes = static_cast<std::uint32_t>(count * Wire::Tag::size);
    return true;
}

} // namespace OvixAgent
