#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/InterfaceClaim.h"
#include "Live/ports/KernelGuard.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/XdpProgram.h"
#include "Live/ports/XdpSocket.h"

namespace OvixAgent {

/// A port for labelled frames by AF_XDP, bypassing the host's network stack, which receives all
/// other frames; of an attachment circuit it receives none. The interface must not remove VLAN tags
/// (offload "rxvlan" off). On a virtual link the sender at the other end must complete its
/// checksums (offload "tx" off).
class XdpPort final : public LivePort {
  public:
    /// `index` becomes the port of every frame. The port is closed when the interface cannot be
    /// used: a frame of its MTU must fit in one buffer, and it must have one receive queue.
    XdpPort(PortIndex index, std::string interfaceName);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return socket_ != nullptr; }
    /// Also to be called when the interface's MAC has changed.
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    unsigned int linkIndex() const noexcept override { return isOpen() ? interfaceIndex_ : 0; }
    std::string warning() const override {
        return circuit_.problem().empty() ? std::string() : name_ + ": " + circuit_.problem();
    }
    int descriptor() const noexcept override { return isOpen() ? socket_->descriptor() : -1; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override;
    void stopIntake() override { program_.reset(); }
    void transmit(const Frame& frame) override;
    void flush() override;

    const LiveCounts& counts() override;
    std::size_t ringFrames() const noexcept override { return XdpSocket::buffers; }

  private:
    void open();
    void hand(std::span<WritableFrame> burst, const BurstVisitor& visitor);
    void shut(std::string problem);
    void checkSocket();
    bool continuesAfter(int error, bool hasSent);

    PortIndex index_;
    std::string name_;
    PacketIntake intake_ = PacketIntake::labelled;
    unsigned int interfaceIndex_ = 0;
    std::optional<InterfaceClaim> claim_; ///< while the port is open
    CircuitInterface circuit_;
    std::unique_ptr<XdpSocket> socket_;
    std::unique_ptr<XdpProgram> program_; ///< refers to the socket
    std::uint64_t dropsCounted_ = 0;      ///< of the socket's drops
    bool isLent_ = false;                 ///< received frames, to a visitor
    LiveCounts counts_;
    std::string problem_;
};

} // namespace OvixAgent
