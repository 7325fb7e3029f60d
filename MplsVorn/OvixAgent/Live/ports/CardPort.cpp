#include "Live/ports/CardPort.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Wire/Ethernet.h"
#include "Wire/Ip.h"

namespace OvixAgent {

namespace {

/// A read of the TAP device is a system call, a look at the card a few loads.
constexpr unsigned int turnsPerLookAtHost = 32;
/// Some ten milliseconds while nothing comes.
constexpr unsigned int looksPerLookAtLink = 128;

struct Taker {
    bool agent = false;
    bool host = false;
};

constexpr Taker agentOnly{true, false};
constexpr Taker hostOnly{false, true};

/// fe80::/10 (RFC 4291 section 2.5.6): never forwarded, and the device's own are the host's.
bool isToLinkLocal(Wire::Bytes packet) noexcept {
    const Wire::Ipv6 ipv6(packet);
    if (!ipv6) {
        return false;
    }
    const std::uint8_t* const address = packet.data() + Wire::Ipv6::destinationAt;
    return address[0] == 0xfe && (address[1] & 0xc0U) == 0x80;
}

/// As the kernel shares the frames of a packet port: the IP packets of groups are for both, and
/// those to own addresses come to the host as punted frames.
Taker takerOf(Wire::Bytes frame, PacketIntake intake, bool routesIp) noexcept {
    const Wire::Ethernet ethernet(frame);
    if (!ethernet || intake == PacketIntake::everything) {
        return agentOnly; // which counts what is too short
    }
    const bool isTagged = Wire::EtherType::isTag(ethernet.etherType());
    if (isTagged && intake == PacketIntake::taggedToAny) {
        return agentOnly;
    }
    Wire::TagWalk walk(ethernet.etherType(), frame.subspan(Wire::Ethernet::size));
    for (Wire::Tag tag; walk.next(tag);) {
    }
    switch (walk.etherType()) {
    case Wire::EtherType::mpls:
    case Wire::EtherType::mplsUpstream:
        return agentOnly;
    case Wire::EtherType::ipv6:
        if (isToLinkLocal(walk.rest())) {
            return hostOnly;
        }
        [[fallthrough]];
    case Wire::EtherType::ipv4:
        return routesIp || isTagged ? Taker{true, ethernet.isToGroup()} : hostOnly;
    default:
        return hostOnly;
    }
}

} // namespace

CardPort::CardPort(PortIndex index, const Port& port, std::unique_ptr<Card> card)
    : index_(index), port_(&port), card_(std::move(card)),
      host_(index, port.name, TapPort::Likeness{card_->mac(), card_->mtu()}) {
    showLink();
}

bool CardPort::reopen() {
    const bool wasOpen = isOpen();
    if (host_.reopen() && !wasOpen) {
        showLink();
    }
    return isOpen();
}

void CardPort::showLink() {
    isLinkUp_ = card_->isLinkUp();
    host_.carrierIs(isLinkUp_);
}

std::size_t CardPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    std::array<WritableFrame, burstFrames> room;
    std::size_t received = 0;
    for (bool hasMore = true; hasMore && received < budget;) {
        const std::size_t most = std::min({room.size(), budget - received, left_});
        const std::size_t count = most == 0 ? 0 : card_->receive({room.data(), most});
        hasMore = count == room.size();
        left_ -= count;
        received += count;
        if (const std::size_t own = sort({room.data(), count}); own > 0) {
            counts_.addReceived({room.data(), own});
            visitor({room.data(), own});
        }
    }
    if (received == 0 || ++turns_ % turnsPerLookAtHost == 0) {
        takeFromHost();
        if (++looks_ % looksPerLookAtLink == 0) {
            host_.keepLikeness();
            if (card_->isLinkUp() != isLinkUp_) {
                showLink();
            }
        }
    }
    return received;
}

/// Moves what is for the agent to the front, in order, and gives the host what is for it.
std::size_t CardPort::sort(std::span<WritableFrame> came) {
    const CaptureTime time = timeNow();
    std::size_t own = 0;
    for (WritableFrame& frame : came) {
        frame.port = index_;
        frame.time = time;
        const Taker taker = takerOf({frame.bytes, frame.size}, intake_, port_->routesIp);
        if (taker.host) {
            host_.transmit(frame.frame());
        }
        if (taker.agent) {
            came[own++] = frame;
        }
    }
    return own;
}

void CardPort::takeFromHost() {
    host_.receive(
        [this](std::span<WritableFrame> burst) {
            for (const WritableFrame& frame : burst) {
                transmit(frame.frame());
            }
        },
        burstFrames);
}

void CardPort::transmit(const Frame& frame) {
    if (!card_->queue(frame.bytes)) {
        counts_.add(LiveEvent::noBuffers);
    }
}

void CardPort::transmitBurst(std::span<const Frame> frames) {
    const std::size_t queued = card_->queueLent(frames);
    if (queued < frames.size()) [[unlikely]] {
        counts_.add(LiveEvent::noBuffers, frames.size() - queued);
    }
}

void CardPort::flush() {
    const Card::Sent sent = card_->flush();
    counts_.add(LiveEvent::sent, sent.sent);
    counts_.add(LiveEvent::queueFull, sent.refused);
}

const LiveCounts& CardPort::counts() {
    const std::uint64_t missed = card_->missed();
    counts_.add(LiveEvent::ringFull, missed - std::exchange(missed_, missed));
    return counts_;
}

} // namespace OvixAgent
