#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "Live/ports/Card.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/TapPort.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// A port on a card that this process drives. This host's own stack has a TAP device of the port's
/// name in the card's place, with its MAC, MTU and link: it gets what the intake leaves out (ARP,
/// IS-IS, LLDP), IP packets to groups, and what `toHost` is given; the card sends what it sends.
///
/// With queues, on a card that was opened for as many workers, each of them receives from the card
/// and gives the host what is for it; the object that has the device takes what the host sends.
class CardPort final : public LivePort {
  public:
    /// `index` becomes the port of every frame; `port`, which must outlive this, says whether it
    /// routes IP packets, which are the host's otherwise. Closed while the device cannot be made.
    CardPort(PortIndex index, const Port& port, std::unique_ptr<Card> card,
             std::uint32_t queues = 0);

    const std::string& name() const noexcept override { return host_->name(); }
    bool isOpen() const noexcept override { return host_->isOpen(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return host_->problem(); }
    /// That of the TAP device: cards are asked, and do not report.
    int descriptor() const noexcept override { return fromHost().descriptor(); }
    bool isPolled() const noexcept override { return receives_; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override;
    /// A card cannot be kept from receiving: what its queue may hold is still taken.
    void stopIntake() override { left_ = Card::queueFrames; }

    void transmit(const Frame& frame) override;
    void transmitBurst(std::span<const Frame> frames) override;
    void flush() override;

    /// A frame of this port for this host itself.
    void toHost(const Frame& frame) { host_->transmit(frame); }

    const LiveCounts& counts() override;
    std::unique_ptr<LivePort> queue(std::uint32_t number) override;

  private:
    /// What the object that has the device tells those of the queues.
    struct Shared {
        std::atomic<PacketIntake> intake{PacketIntake::labelledAndIp};
        std::atomic<bool> routesIp{false};
    };

    CardPort(PortIndex index, std::unique_ptr<Card> card, std::unique_ptr<LivePort> host,
             std::shared_ptr<Shared> shared);

    LivePort& fromHost() noexcept { return hostQueue_ ? *hostQueue_ : *host_; }
    const LivePort& fromHost() const noexcept { return hostQueue_ ? *hostQueue_ : *host_; }
    std::size_t takeFromCard(const BurstVisitor& visitor, std::size_t budget);
    void lookAtDevice();
    std::size_t sort(std::span<WritableFrame> came);
    void takeFromHost();
    void showLink();

    PortIndex index_;
    const Port* port_ = nullptr; ///< of the object that has the device
    std::unique_ptr<Card> card_;
    bool receives_ = true; ///< from the card
    TapPort* device_ = nullptr;
    std::unique_ptr<LivePort> host_;      ///< to it; the device itself where there is one object
    std::unique_ptr<LivePort> hostQueue_; ///< from it, with queues
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
    std::size_t left_ = SIZE_MAX; ///< frames to be taken before the port is stopped
    bool isLinkUp_ = false;
    unsigned int turns_ = 0;
    unsigned int looks_ = 0;
    std::uint64_t missed_ = 0; ///< counted so far
    LiveCounts counts_;
};

} // namespace OvixAgent
