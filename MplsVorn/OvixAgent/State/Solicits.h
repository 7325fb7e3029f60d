#pragma once

#include <array>
#include <chrono>
#include <span>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IpGenAddr.h"
#include "State/TokenBucket.h"

namespace OvixAgent {

/// Chooses the unknown neighbours that are solicited. Whoever sends packets to addresses that
/// nobody has must not keep others from being resolved, nor fill the kernel's table of neighbours:
/// next hops of routes, and neighbours that have answered before, come first and are not limited;
/// of the destinations of packets only so many are solicited for each port and each sender. One
/// that has just failed is not solicited again at once. Takes nothing from the heap.
class Solicits {
  public:
    using Clock = std::chrono::steady_clock;

    struct Neighbour {
        Lumo::IpGenAddr address;
        PortIndex port = 0;
        bool operator==(const Neighbour&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Neighbour& key) const noexcept;
    };
    /// Who has named the neighbour: a route, or a packet as its destination.
    enum class By : std::uint8_t { route, packet };
    /// What becomes of a packet that needs it.
    enum class Verdict : std::uint8_t {
        waits,  ///< it is being solicited
        failed, ///< it did not answer a moment ago
        refused ///< too many others are solicited
    };

    /// Destinations of packets that are solicited at each port, and for each sender of such
    /// packets.
    static constexpr TokenRate perPort{64, 128};
    static constexpr TokenRate perSender{16, 32};
    /// How long a failure is remembered.
    static constexpr std::chrono::seconds ofRoute{1};
    static constexpr std::chrono::seconds ofPacket{3};

    explicit Solicits(std::size_t ports, std::uint64_t seed = runSeed());

    /// The time of what follows; it does not pass by itself.
    void timeIs(Clock::time_point now) noexcept { now_ = now; }

    Verdict want(const Neighbour& neighbour, By by, PortIndex ingress,
                 const Lumo::IpGenAddr& source) noexcept;
    void hasFailed(const Neighbour& neighbour) noexcept;
    /// It has answered.
    void isKnown(const Neighbour& neighbour) noexcept;

    /// To be solicited since the last call, each once, the next hops of routes first. Valid until
    /// the next want().
    std::span<const Neighbour> take() noexcept;

  private:
    /// A neighbour solicited last, or that has failed last, of those that share the place.
    struct Recent {
        Neighbour neighbour;
        Clock::time_point at{};
        bool hasFailed = false;
    };
    static constexpr std::size_t places = 4096;
    static constexpr std::size_t mostAtOnce = 32; ///< of either kind

    static std::size_t placeOf(const Neighbour& neighbour) noexcept {
        return Hash()(neighbour) % places;
    }
    bool add(const Neighbour& neighbour, By by) noexcept;

    Clock::time_point now_{};
    std::vector<Recent> recent_;
    std::vector<Neighbour> known_;
    std::vector<TokenBucket> ofPort_;
    SenderBuckets ofSender_;
    std::array<Neighbour, 2 * mostAtOnce> wanted_; ///< next hops of routes in the first half
    std::array<std::size_t, 2> wantedCount_{};     ///< by By
};

} // namespace OvixAgent
