#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/Handover.h"
#include "Live/ports/InterfaceClaim.h"
#include "Live/ports/KernelGuard.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/PacketRing.h"
#include "Live/ports/PacketSender.h"
#include "Live/ports/WireFrames.h"
#include "State/FrameBurst.h"

namespace OvixAgent {

/// A port on a network interface by two packet sockets: one with a receive ring, and one that only
/// sends. Frames that the host itself sends on the interface are not received.
///
/// The interface's settings are not changed. It delivers frames of several segments when it merges
/// received frames (GRO), or when a sender on the other end of a virtual link leaves segmentation
/// to the hardware (TSO, GSO). They are cut into wire frames here; those that cannot be, such as
/// jumbograms, are counted and dropped.
class PacketPort final : public LivePort {
  public:
    /// `index` becomes the port of every frame. The port is closed when the interface cannot be
    /// used. With `queues`, it receives by them only, which make up one fanout group.
    PacketPort(PortIndex index, std::string interfaceName, PacketIntake intake,
               std::uint32_t queues = 0);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return sender_.isOpen(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    unsigned int linkIndex() const noexcept override { return isOpen() ? interfaceIndex_ : 0; }
    std::string warning() const override {
        return circuit_.problem().empty() ? std::string() : name_ + ": " + circuit_.problem();
    }
    int descriptor() const noexcept override { return ring_ ? ring_->descriptor() : -1; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override;
    void stopIntake() override;
    void transmit(const Frame& frame) override;
    void flush() override;

    const LiveCounts& counts() override;
    std::unique_ptr<LivePort> queue(std::uint32_t number) override;
    std::size_t ringFrames() const noexcept override { return ring_ ? ring_->frames() : 0; }

  private:
    /// What the queues' objects take over from the one that has the interface.
    struct Interface {
        unsigned int index = 0; ///< 0: not open
        PacketIntake intake = PacketIntake::labelled;
        std::shared_ptr<FanoutGroup> group;
    };
    struct Queues {
        explicit Queues(std::uint32_t number) : count(number) {}
        const std::uint32_t count;
        Handover<Interface> interface;
    };

    PacketPort(PortIndex index, std::string interfaceName, std::shared_ptr<Queues> queues);

    bool gather(std::size_t most) noexcept;
    bool gatherSegment() noexcept;
    void open();
    void openQueue();
    void takeOver();
    void shut(std::string problem);
    void checkSocket();
    void prepareInterface();

    PortIndex index_;
    std::string name_;
    std::shared_ptr<Queues> queues_; ///< null: this object does everything
    bool isQueue_ = false;
    Interface taken_; ///< what a queue's object has taken over, or what others have to
    std::uint32_t takenVersion_ = 0;
    PacketIntake intake_;
    unsigned int interfaceIndex_ = 0;
    bool wasDown_ = false;                ///< and no frame has come since
    std::optional<InterfaceClaim> claim_; ///< while the port is open
    std::optional<PacketRing> ring_;      ///< of an object that receives
    CircuitInterface circuit_;
    FrameSegments segments_; ///< of the current frame in the ring
    FrameBurst burst_;       ///< with memory for segments
    LiveCounts counts_;
    PacketSender sender_{counts_};
    std::string problem_;
};

} // namespace OvixAgent
