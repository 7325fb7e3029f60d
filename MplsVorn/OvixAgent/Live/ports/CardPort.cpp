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
    if (Wire::EtherType::isMpls(ethernet.etherType())) {
        return agentOnly;
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

// The device has no more than one queue: the host sends little, and any thread may write to it.
CardPort::CardPort(PortIndex index, const Port& port, std::unique_ptr<Card> card,
                   std::uint32_t queues)
    : index_(index), port_(&port), card_(std::move(card)), receives_(queues == 0) {
    auto device = std::make_unique<TapPort>(
        index, port.name, TapPort::Likeness{card_->mac(), card_->mtu()}, queues > 0 ? 1 : 0);
    device_ = device.get();
    host_ = std::move(device);
    hostQueue_ = host_->queue(0);
    showLink();
}

CardPort::CardPort(PortIndex index, std::unique_ptr<Card> card, std::unique_ptr<LivePort> host,
                   std::shared_ptr<Shared> shared)
    : index_(index), card_(std::move(card)), host_(std::move(host)), shared_(std::move(shared)) {}

std::unique_ptr<LivePort> CardPort::queue(std::uint32_t number) {
    std::unique_ptr<Card> card = receives_ ? nullptr : card_->forWorker(number);
    if (!card) {
        return nullptr;
    }
    constexpr std::uint32_t onlySends = 1;
    return std::unique_ptr<LivePort>(
        new CardPort(index_, std::move(card), host_->queue(onlySends), shared_));
}

bool CardPort::reopen() {
    const bool wasOpen = isOpen();
    if (host_->reopen() && !wasOpen) {
        showLink();
    }
    return isOpen();
}

void CardPort::intakeIs(PacketIntake intake) {
    shared_->intake.store(intake, std::memory_order_relaxed);
}

void CardPort::showLink() {
    if (device_ != nullptr) {
        isLinkUp_ = card_->isLinkUp();
        device_->carrierIs(isLinkUp_);
    }
}

void CardPort::lookAtDevice() {
    device_->keepLikeness();
    if (card_->isLinkUp() != isLinkUp_) {
        showLink();
    }
}

std::size_t CardPort::receive(const BurstVisitor& visitor, std::size_t budget) {
    if (device_ == nullptr) {
        host_->receive(visitor, 0); // it may have changed
        return takeFromCard(visitor, budget);
    }
    shared_->routesIp.store(port_->routesIp, std::memory_order_relaxed);
    if (!receives_) {
        takeFromHost();
        lookAtDevice();
        return 0;
    }
    const std::size_t received = takeFromCard(visitor, budget);
    if (received == 0 || ++turns_ % turnsPerLookAtHost == 0) {
        takeFromHost();
        if (++looks_ % looksPerLookAtLink == 0) {
            lookAtDevice();
        }
    }
    return received;
}

std::size_t CardPort::takeFromCard(const BurstVisitor& visitor, std::size_t budget) {
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
    return received;
}

/// Moves what is for the agent to the front, in order, and gives the host what is for it.
std::size_t CardPort::sort(std::span<WritableFrame> came) {
    const CaptureTime time = timeNow();
    const PacketIntake intake = shared_->intake.load(std::memory_order_relaxed);
    const bool routesIp = shared_->routesIp.load(std::memory_order_relaxed);
    std::size_t own = 0;
    for (WritableFrame& frame : came) {
        frame.port = index_;
        frame.time = time;
        const Taker taker = takerOf({frame.bytes, frame.size}, intake, routesIp);
        if (taker.host) {
            counts_.add(LiveEvent::forHost);
            host_->transmit(frame.frame());
        }
        if (taker.agent) {
            came[own++] = frame;
        }
    }
    return own;
}

void CardPort::takeFromHost() {
    fromHost().receive(
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
