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
        departures_->flush();
        copies_.resize(copiesMemory);
        copied_ = 0;
    }
    count(counted, replicas.events);
    const auto entry = Lumo::MplsLabelEntry::load(work.packet);
    for (std::size_t i = 0; i < replicas.legs.size(); ++i) {
        const bool isLast = i + 1 == replicas.legs.size();
        if (replicas.legs[i].isCounted) {
            countLabel(entry, work);
        }
        sendReplica(replicas.legs[i], work, isLast);
    }
    return true;
}

/// The last one is the frame itself.
void LabelForwarding::sendReplica(const DecidedRewrite& leg, const PacketWork& work, bool isLast) {
    PacketWork replica = work;
    if (!isLast) {
        replica.packet = copies_.data() + copied_ + frameHeadroom;
        std::copy_n(work.packet, work.length, replica.packet);
        copied_ += work.length + frameHeadroom;
    }
    applyRewrite(leg, replica);
    const EgressLine& line = (*lines_)[leg.egress];
    const Wire::Bytes frame = withLinkHeader(replica, line, etherTypeOf(replica.type));
    if (leg.isToGroup) {
        nameLabel(replica, replica.packet - (Wire::Ethernet::size + line.tagBytes));
    }
    if (isLast) {
        departures_->sendAs(*work.frame, work.port, *line.port, frame);
    } else {
        departures_->sendReplica(*work.frame, work.port, *line.port, frame);
    }
}

} // namespace OvixAgent
