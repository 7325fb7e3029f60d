#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/Handover.h"
#include "Live/ports/InterfaceClaim.h"
#include "Live/ports/KernelGuard.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/PacketSender.h"
#include "Live/ports/XdpProgram.h"
#include "Live/ports/XdpSockets.h"

namespace OvixAgent {

/// A port for labelled frames by AF_XDP, bypassing the host's network stack, which receives all
/// other frames; of an attachment circuit it receives none. The interface must not remove VLAN tags
/// (offload "rxvlan" off). On a virtual link the sender at the other end must complete its
/// checksums (offload "tx" off).
///
/// It serves all receive queues of the interface, on which the interface itself spreads flows. With
/// several threads each serves every nth, and the one that has the interface sends by a packet
/// socket, since no queue takes a second AF_XDP socket.
class XdpPort final : public LivePort {
  public:
    /// `index` becomes the port of every frame. The port is closed when the interface cannot be
    /// used: a frame of its MTU must fit in one buffer, and there must be a receive queue for each
    /// of the port's `queues`.
    XdpPort(PortIndex index, std::string interfaceName, std::uint32_t queues = 0);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return sockets_.isOpen() || sender_.isOpen(); }
    /// Also to be called when the interface's MAC has changed.
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    unsigned int linkIndex() const noexcept override { return isOpen() ? interfaceIndex_ : 0; }
    std::string warning() const override {
        return circuit_.problem().empty() ? std::string() : name_ + ": " + circuit_.problem();
    }
    int descriptor() const noexcept override { return sockets_.descriptor(); }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    void intakeIs(PacketIntake intake) override;
    /// Of all queues, by the object that has the interface.
    void stopIntake() override;
    void transmit(const Frame& frame) override;
    void flush() override;

    const LiveCounts& counts() override;
    std::unique_ptr<LivePort> queue(std::uint32_t number) override;
    std::size_t ringFrames() const noexcept override {
        return XdpSocket::buffers * sockets_.size();
    }

  private:
    /// What the queues' objects take over from the one that has the interface.
    struct Interface {
        unsigned int index = 0; ///< 0: not open
        std::shared_ptr<XdpProgram> program;
    };
    struct Queues {
        explicit Queues(std::uint32_t number) : count(number) {}
        const std::uint32_t count;
        Handover<Interface> interface;
    };

    XdpPort(PortIndex index, std::string interfaceName, std::shared_ptr<Queues> queues,
            std::uint32_t number);

    bool isQueue() const noexcept { return number_.has_value(); }
    void open();
    void openQueue();
    std::uint32_t receiveQueues(const std::string& name) const;
    void hand(XdpSocket& socket, std::span<WritableFrame> burst, const BurstVisitor& visitor);
    void shut(std::string problem);
    void checkSocket();
    bool continuesAfter(int error, bool hasSent);

    PortIndex index_;
    std::string name_;
    PacketIntake intake_ = PacketIntake::labelled;
    std::shared_ptr<Queues> queues_;      ///< null: this object does everything
    std::optional<std::uint32_t> number_; ///< of a queue's object
    std::uint32_t takenVersion_ = 0;      ///< by it, of the interface
    unsigned int interfaceIndex_ = 0;
    bool wasDown_ = false;                ///< and no frame has come since
    std::optional<InterfaceClaim> claim_; ///< while the port is open
    CircuitInterface circuit_;
    std::shared_ptr<XdpProgram> program_;
    XdpSockets sockets_;             ///< of an object that receives
    std::uint64_t dropsCounted_ = 0; ///< of the sockets' drops
    bool isLent_ = false;            ///< received frames, to a visitor
    LiveCounts counts_;
    PacketSender sender_{counts_}; ///< of an object that only sends
    std::string problem_;
};

} // namespace OvixAgent
