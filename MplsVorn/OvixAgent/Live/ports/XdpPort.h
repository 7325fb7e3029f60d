#pragma once

#include <memory>
#include <string>

#include "Config/ConfigTypes.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/XdpProgram.h"
#include "Live/ports/XdpSocket.h"

namespace OvixAgent {

/// A port for labelled frames through AF_XDP, past the host's network stack; whatever else the
/// interface receives goes to that stack. Frames come with the tag that is in them: an interface
/// that takes tags off by itself has to be told not to (its "rxvlan" offload). On a virtual link
/// they come with the checksum that the sender at the other end has left to the hardware, too:
/// that sender has to be told not to (its "tx" offload).
class XdpPort final : public LivePort {
  public:
    /// `index` is handed on in every frame. When the interface cannot be used, the port is not
    /// open: its MTU must leave a frame in one buffer, and it must have one receive queue.
    XdpPort(PortIndex index, std::string interfaceName);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return socket_ != nullptr; }
    /// Due also when the interface's MAC has changed.
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    int descriptor() const noexcept override { return isOpen() ? socket_->descriptor() : -1; }

    std::size_t receive(const FrameVisitor& visitor, std::size_t budget) override;
    void stopIntake() override { program_.reset(); }
    void transmit(const Frame& frame) override;
    void flush() override;

    const LiveCounts& counts() override;

  private:
    void open();
    void shut(std::string problem);
    void seeWhatIsWrong();
    bool goOnAfter(int error, bool isMoving);

    PortIndex index_;
    std::string name_;
    unsigned int interfaceIndex_ = 0;
    std::unique_ptr<XdpSocket> socket_;
    std::unique_ptr<XdpProgram> program_; ///< refers to the socket
    std::uint64_t dropsCounted_ = 0;      ///< of those of the socket
    LiveCounts counts_;
    std::string problem_;
};

} // namespace OvixAgent
