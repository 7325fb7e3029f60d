#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "Lumo/IpGenAddr.h"
#include "State/Frame.h"

namespace OvixAgent {

/// A network card that this process drives itself, without the kernel, or what one of several
/// threads has of it. Nothing blocks.
class Card {
  public:
    /// The most frames that wait to be received.
    static constexpr std::size_t queueFrames = 1024;

    Card() = default;
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;
    virtual ~Card() = default;

    virtual Lumo::EthAddr mac() const = 0;
    virtual std::uint32_t mtu() const = 0;
    virtual bool isLinkUp() = 0;

    /// Puts frames that have come into `room`, with their bytes, sizes and headroom, and returns
    /// how many. They are lent until the next call.
    virtual std::size_t receive(std::span<WritableFrame> room) = 0;

    /// Queues a copy, which `flush()` sends. False when it has no room for it.
    virtual bool queue(std::span<const std::uint8_t> bytes) = 0;
    /// The same of frames whose bytes nobody needs afterwards, so that those lent by a card of the
    /// same module need no copy. Returns how many it had room for.
    virtual std::size_t queueLent(std::span<const Frame> frames) = 0;
    struct Sent {
        std::size_t sent = 0;
        std::size_t refused = 0; ///< queued, and dropped since the card had no room
    };
    virtual Sent flush() = 0;

    /// Frames that have come while there was no room for them, since the card was opened: of this
    /// thread, or what only the card knows of.
    virtual std::uint64_t missed() = 0;

    /// For another thread, of a card that was opened for workers and does not receive then: one
    /// that receives its share of the flows, all frames of each, and sends. Null for others.
    virtual std::unique_ptr<Card> forWorker(std::uint32_t /*worker*/) { return nullptr; }
};

/// A device that cannot be used. The text says which, what is wrong and what helps.
class CardError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct CardOptions {
    std::string device;           ///< "0000:3b:00.0", or a driver's virtual one, "net_tap0,iface=x"
    std::vector<std::string> eal; ///< what the driver's library is started with, by the first card
    std::size_t cards = 1;        ///< of all ports, by which the frames of this one may leave
    Lumo::EthAddr mac{};          ///< zeros: the card's own
    std::uint32_t mtu = 0;        ///< likewise
    std::uint32_t workers = 0;    ///< threads that receive; 0: the one that has the card does
};

/// What a module of drivers exports as `ovixOpenCard`; the card is the caller's. Throws
/// CardError.
using OpenCard = Card*(const CardOptions& options);

/// Opens a card by the module of DPDK, which is loaded with the first one. Throws
/// CardError.
std::unique_ptr<Card> openDpdkCard(const CardOptions& options);

} // namespace OvixAgent
