// Replicas of multicast frames: copies in memory that is kept until they have left.

#include <algorithm>

#include "FastPath/LabelForwarding.h"
#include "FastPath/LabelRewrite.h"

namespace OvixAgent {

namespace {

constexpr std::size_t copiesMemory = std::size_t{1} << 18U;

std::uint32_t lengthOf(const DecidedRewrite& leg, const PacketWork& work) noexcept {
    return static_cast<std::uint32_t>(static_cast<std::int32_t>(work.length) + leg.grows);
}

/// The group address of a packet names its second label, or its only one (RFC 5332 section 8).
void nameLabel(Wire::Bytes packet, std::uint8_t* mac) noexcept {
    constexpr std::uint32_t size = Lumo::MplsLabelEntry::size;
    const auto top = Lumo::MplsLabelEntry::load(packet.data());
    const bool hasSecond = !top.bos() && packet.size() >= 2 * size;
    const auto named = hasSecond ? Lumo::MplsLabelEntry::load(packet.data() + size) : top;
    const std::uint32_t label = named.label().value();
    mac[3] = static_cast<std::uint8_t>(0x80U | label >> 16U);
    mac[4] = static_cast<std::uint8_t>(label >> 8U);
    mac[5] = static_cast<std::uint8_t>(label);
}

[[gnu::noinline]] void popReplica(const DecidedRewrite& leg, PacketWork replica,
                                  std::uint8_t* packet) {
    replica.packet = packet;
    applyRewrite(leg, replica);
}

} // namespace

/// The replica lies at `packet`: the last one is the frame itself.
inline void LabelForwarding::sendReplica(const DecidedRewrite& leg, const PacketWork& work,
                                         std::uint8_t* packet) {
    const EgressLine& line = (*lines_)[leg.egress];
    const std::uint32_t length = lengthOf(leg, work);
    std::uint8_t* const start = packet - leg.grows;
    std::uint16_t etherType = Wire::EtherType::mpls;
    if (leg.kind == DecidedRewrite::Kind::pop) [[unlikely]] {
        etherType = etherTypeOf(leg.exposed);
        popReplica(leg, work, packet);
    } else {
        imposeLabels(leg, Lumo::NetU32::load(packet).value(), start);
    }
    const Wire::Bytes frame = withLinkHeader(start, length, line, etherType);
    if (leg.isToGroup) {
        nameLabel({start, length}, start - (Wire::Ethernet::size + line.tagBytes));
    }
    departures_.sendAs(*work.frame, work.port, *line.port, frame);
}

// All or none: a leg that cannot leave now is for the forwarder, and the others with it.
bool LabelForwarding::followReplicas(const Decision& decision, const Counted& counted,
                                     PacketWork& work) {
    const DecidedReplicas& replicas = decisions_->replicas[decision.value];
    const std::size_t room = replicas.legs.size() * (work.length + frameHeadroom);
    const bool allLeave =
        std::all_of(replicas.legs.begin(), replicas.legs.end(), [&](const DecidedRewrite& leg) {
            return (*lines_)[leg.egress].takes(lengthOf(leg, work));
        });
    if (!allLeave || room > copiesMemory || !work.hasRoom(replicas.mostGrowth)) {
        return false;
    }
    if (copies_.size() - copied_ < room) {
        departures_.flush();
        copies_.resize(copiesMemory);
        copied_ = 0;
    }
    if (counted.count == 1) { // of a lookup
        events_.count(replicas.all);
    } else {
        count(counted, replicas.events);
    }
    if (replicas.counted > 0) {
        labelCounters_->countPackets(labelOf(Lumo::MplsLabelEntry::load(work.packet)),
                                     replicas.counted, work.counted());
    }
    const DecidedRewrite* const last = &replicas.legs.back();
    for (const DecidedRewrite& leg : replicas.legs) {
        sendReplica(leg, work, &leg == last ? work.packet : copyOf(work));
    }
    departures_.countReplicas(replicas.legs.size() - 1);
    return true;
}

std::uint8_t* LabelForwarding::copyOf(const PacketWork& work) {
    std::uint8_t* const packet = copies_.data() + copied_ + frameHeadroom;
    std::copy_n(work.packet, work.length, packet);
    copied_ += work.length + frameHeadroom;
    return packet;
}

} // namespace OvixAgent
