#pragma once

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
class CardPort final : public LivePort {
  public:
    /// `index` becomes the port of every frame; `port`, which must outlive this, says whether it
    /// routes IP packets, which are the host's otherwise. Closed while the device cannot be made.
    CardPort(PortIndex index, const Port& port, std::unique_ptr<Card> card);

    const std::string& name() const noexcept override { return host_.name(); }
    bool isOpen() const noexcept override { return host_.isOpen(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return host_.problem(); }
    /// That of the TAP device: cards are asked, and do not report.
    int descriptor() const noexcept override { return host_.descriptor(); }
    bool isPolled() const noexcept override { return true; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override { intake_ = intake; }
    /// A card cannot be kept from receiving: what its queue may hold is still taken.
    void stopIntake() override { left_ = Card::queueFrames; }

    void transmit(const Frame& frame) override;
    void transmitBurst(std::span<const Frame> frames) override;
    void flush() override;

    /// A frame of this port for this host itself.
    void toHost(const Frame& frame) { host_.transmit(frame); }

    const LiveCounts& counts() override;

  private:
    std::size_t sort(std::span<WritableFrame> came);
    void takeFromHost();
    void showLink();

    PortIndex index_;
    const Port* port_;
    std::unique_ptr<Card> card_;
    TapPort host_;
    PacketIntake intake_ = PacketIntake::labelledAndIp;
    std::size_t left_ = SIZE_MAX; ///< frames to be taken before the port is stopped
    bool isLinkUp_ = false;
    unsigned int turns_ = 0;
    unsigned int looks_ = 0;
    std::uint64_t missed_ = 0; ///< counted so far
    LiveCounts counts_;
};

} // namespace OvixAgent
