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
void nameLabel(const PacketWork& work, std::uint8_t* mac) noexcept {
    constexpr std::uint32_t size = Lumo::MplsLabelEntry::size;
    const auto top = Lumo::MplsLabelEntry::load(work.packet);
    const bool hasSecond = !top.bos() && work.length >= 2 * size;
    const auto named = hasSecond ? Lumo::MplsLabelEntry::load(work.packet + size) : top;
    const std::uint32_t label = named.label().value();
    mac[3] = static_cast<std::uint8_t>(0x80U | label >> 16U);
    mac[4] = static_cast<std::uint8_t>(label >> 8U);
    mac[5] = static_cast<std::uint8_t>(label);
}

} // namespace

// All or none: a leg that cannot leave now is for the forwarder, and the others with it.
bool LabelForwarding::followReplicas(const Decision& decision, const Counted& counted,
                                     PacketWork& work) {
    const DecidedReplicas& replicas = decisions_->replicas[decision.value];
    const std::size_t room = replicas.legs.size() * (work.length + frameHeadroom);
    const bool allLeave =
        std::all_of(replicas.legs.begin(), replicas.legs.end(), [&](const DecidedRewrite& leg) {
            return (*lines_)[leg.egress].takes(lengthOf(leg, work)) &&
                   work.hasRoom(static_cast<std::size_t>(std::max<int>(leg.grows, 0)));
        });
    if (!allLeave || room > copiesMemory) {
        return false;
    }
    if (copies_.size() - copied_ < room) {
        departures_.flush();
        copies_.resize(copiesMemory);
        copied_ = 0;
    }
    count(counted, replicas.events);
    const auto entry = Lumo::MplsLabelEntry::load(work.packet);
    const DecidedRewrite* const last = &replicas.legs.back();
    for (const DecidedRewrite& leg : replicas.legs) {
        if (leg.isCounted) {
            countLabel(entry, work);
        }
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

/// The replica lies at `packet`: the last one is the frame itself.
void LabelForwarding::sendReplica(const DecidedRewrite& leg, const PacketWork& work,
                                  std::uint8_t* packet) {
    PacketWork replica = work;
    replica.packet = packet;
    if (leg.kind == DecidedRewrite::Kind::pop) {
        applyRewrite(leg, replica);
    } else {
        const std::uint32_t top = Lumo::NetU32::load(packet).value();
        replica.packet -= leg.grows;
        replica.length = lengthOf(leg, work);
        imposeLabels(leg, top, replica.packet);
    }
    const EgressLine& line = (*lines_)[leg.egress];
    const Wire::Bytes frame = withLinkHeader(replica, line, etherTypeOf(replica.type));
    if (leg.isToGroup) {
        nameLabel(replica, replica.packet - (Wire::Ethernet::size + line.tagBytes));
    }
    departures_.sendAs(*work.frame, work.port, *line.port, frame);
}

} // namespace OvixAgent
