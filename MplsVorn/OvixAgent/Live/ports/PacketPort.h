#pragma once

#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/InterfaceClaim.h"
#include "Live/ports/KernelGuard.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/PacketRing.h"
#include "Live/ports/SendQueue.h"
#include "Live/ports/WireFrames.h"
#include "Posix/FileDescriptor.h"
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
    /// used.
    PacketPort(PortIndex index, std::string interfaceName, PacketIntake intake);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return ring_.has_value(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    unsigned int linkIndex() const noexcept override { return isOpen() ? interfaceIndex_ : 0; }
    std::string warning() const override {
        return circuit_.problem().empty() ? std::string() : name_ + ": " + circuit_.problem();
    }
    int descriptor() const noexcept override { return isOpen() ? ring_->descriptor() : -1; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override;
    void stopIntake() override;
    void transmit(const Frame& frame) override;
    void flush() override;

    const LiveCounts& counts() override;
    std::size_t ringFrames() const noexcept override { return PacketRing::frames(); }

  private:
    bool gather(std::size_t most) noexcept;
    bool gatherSegment() noexcept;
    void shut(std::string problem);
    void openSender();
    void checkSocket();
    void prepareInterface();

    PortIndex index_;
    std::string name_;
    PacketIntake intake_;
    unsigned int interfaceIndex_ = 0;
    std::optional<InterfaceClaim> claim_; ///< while the port is open
    std::optional<PacketRing> ring_;
    CircuitInterface circuit_;
    FrameSegments segments_; ///< of the current frame in the ring
    FrameBurst burst_;       ///< with memory for segments
    Posix::FileDescriptor sender_;
    LiveCounts counts_;
    SendQueue queue_{counts_};
    std::string problem_;
};

} // namespace OvixAgent
