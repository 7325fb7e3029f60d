#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Config/Config.h"
#include "Live/ports/Handover.h"
#include "Live/ports/LivePort.h"
#include "Live/ports/TapQueues.h"
#include "State/FrameBurst.h"

namespace OvixAgent {

/// A port to this host's own network stack: a TAP device, created unless it exists, and brought up.
/// The stack receives what the port sends, and vice versa. A device created here is removed with
/// the port, so `reopen()` leaves an open port whose device exists as it is.
///
/// With queues, each of them has a file of the device; the object that has the interface sends by
/// the first one.
class TapPort final : public LivePort {
  public:
    /// What a device looks like to this host's stack where it stands for another.
    struct Likeness {
        Lumo::EthAddr mac{};
        std::uint32_t mtu = 0;
    };

    /// `index` becomes the port of every frame. The port is closed when the device cannot be used.
    TapPort(PortIndex index, std::string deviceName, std::optional<Likeness> likeness = {},
            std::uint32_t queues = 0);

    const std::string& name() const noexcept override { return name_; }
    bool isOpen() const noexcept override { return device_ != nullptr; }
    bool reopen() override;
    const std::string& problem() const noexcept override { return problem_; }
    std::string warning() const override {
        return isOpen() && !device_->problem().empty() ? name_ + ": " + device_->problem()
                                                       : std::string();
    }
    int descriptor() const noexcept override { return isOpen() ? device_->file(number_) : -1; }

    std::size_t receive(const BurstVisitor& visitor, std::size_t budget) override;
    /// Sends at once: the device accepts one frame per call.
    void transmit(const Frame& frame) override;
    void flush() override {}

    const LiveCounts& counts() override { return counts_; }
    /// One beyond the queues only sends.
    std::unique_ptr<LivePort> queue(std::uint32_t number) override;

    /// Gives the device its likeness again, of which this host's device manager may think
    /// otherwise: systemd-udevd gives new devices addresses of its own, a while after they were
    /// made.
    void keepLikeness() noexcept;
    /// Whether the device has a carrier, for this host's stack.
    void carrierIs(bool isUp) noexcept;

  private:
    /// The number of an object that does not receive.
    static constexpr std::uint32_t noQueue = UINT32_MAX;
    struct Queues {
        explicit Queues(std::uint32_t number) : count(number) {}
        const std::uint32_t count;
        Handover<std::shared_ptr<const TapQueues>> device;
    };

    TapPort(PortIndex index, std::string deviceName, std::shared_ptr<Queues> queues,
            std::uint32_t number);

    bool isQueue() const noexcept { return queues_ && number_ != noQueue; }
    int sendingFile() const noexcept;
    void open();
    bool gather(std::size_t most);
    void shut(std::string problem);
    void countFailure(int error);

    PortIndex index_;
    std::string name_;
    std::optional<Likeness> likeness_;
    unsigned int interfaceIndex_ = 0;
    std::shared_ptr<Queues> queues_; ///< null: this object does everything
    std::uint32_t number_;           ///< of its queue
    std::uint32_t takenVersion_ = 0; ///< by a queue's object, of the device
    std::shared_ptr<const TapQueues> device_;
    FrameBurst burst_;
    LiveCounts counts_;
    std::string problem_;
    std::chrono::steady_clock::time_point tryAgainAt_;
};

} // namespace OvixAgent
