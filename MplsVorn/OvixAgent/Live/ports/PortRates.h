#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "Live/ports/LivePorts.h"

namespace OvixAgent {

/// Frames received per second of late, by port and by worker's queue of it.
class PortRates {
  public:
    using Clock = std::chrono::steady_clock;

    /// The ports, of which there are `count`, must outlive it.
    PortRates(const LivePorts& ports, std::size_t count, Clock::time_point now = Clock::now());

    /// Whether tick() has something to do, which wants the gate closed.
    bool isDue(Clock::time_point now) const noexcept { return now - last_.time >= every; }
    /// Does nothing when a second has not passed.
    void tick(Clock::time_point now);

    /// Since one to two seconds ago, or the start. `queue` is a worker's number; the gate is
    /// closed.
    double ofPort(PortIndex index, Clock::time_point now) const;
    double ofQueue(PortIndex index, std::size_t queue, Clock::time_point now) const;

  private:
    static constexpr std::chrono::seconds every{1};
    /// What has come to each port: to all of it, and to each of its queues.
    struct Moment {
        Clock::time_point time;
        std::vector<std::vector<std::uint64_t>> received;
    };
    Moment momentAt(Clock::time_point now) const;
    double since(PortIndex index, std::size_t place, std::uint64_t received,
                 Clock::time_point now) const;

    const LivePorts* ports_;
    std::size_t count_;
    Moment before_;
    Moment last_;
};

} // namespace OvixAgent
