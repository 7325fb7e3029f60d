#pragma once

#include <string>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Live/ports/LivePort.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// A port to this host's own network stack: a TAP device, made if there is none of its name, and
/// brought up. What is sent here the stack receives, and the other way round. A device that was
/// made here goes with the port; so a port that is open, and its device there, stays as it is when
/// it is to be opened anew.
class TapPort final : public LivePort {
  public:
    /// `index` is handed on in every frame. When the device cannot be had, the port is not open.
    TapPort(PortIndex index, std::string deviceName);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return device_.isOpen(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    int descriptor() const noexcept override { return device_.value(); }

    std::size_t receive(const FrameVisitor& visitor, std::size_t budget) override;
    /// Sends at once: the device takes one frame per call.
    void transmit(const Frame& frame) override;
    void flush() override {}

    const LiveCounts& counts() override { return counts_; }

  private:
    void open();
    void shut(std::string problem);
    void countFailure(int error);

    PortIndex index_;
    std::string name_;
    unsigned int interfaceIndex_ = 0;
    Posix::FileDescriptor device_;
    std::vector<std::uint8_t> buffer_;
    LiveCounts counts_;
    std::string problem_;
};

} // namespace OvixAgent
