#pragma once

#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/LivePort.h"
#include "Posix/FileDescriptor.h"
#include "State/FrameBurst.h"

namespace OvixAgent {

/// A port to this host's own network stack: a TAP device, created unless it exists, and brought up.
/// The stack receives what the port sends, and vice versa. A device created here is removed with
/// the port, so `reopen()` leaves an open port whose device exists as it is.
class TapPort final : public LivePort {
  public:
    /// What a device looks like to this host's stack where it stands for another.
    struct Likeness {
        Lumo::EthAddr mac{};
        std::uint32_t mtu = 0;
    };

    /// `index` becomes the port of every frame. The port is closed when the device cannot be used.
    TapPort(PortIndex index, std::string deviceName, std::optional<Likeness> likeness = {});

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return device_.isOpen(); }
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    int descriptor() const noexcept override { return device_.value(); }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    /// Sends at once: the device accepts one frame per call.
    void transmit(const Frame& frame) override;
    void flush() override {}

    const LiveCounts& counts() override { return counts_; }

    /// Whether the device has a carrier, for this host's stack.
    void carrierIs(bool isUp) noexcept;

  private:
    void open();
    bool gather(std::size_t most);
    void shut(std::string problem);
    void countFailure(int error);

    PortIndex index_;
    std::string name_;
    std::optional<Likeness> likeness_;
    unsigned int interfaceIndex_ = 0;
    Posix::FileDescriptor device_;
    FrameBurst burst_;
    LiveCounts counts_;
    std::string problem_;
};

} // namespace OvixAgent
