#pragma once

#include <cassert>
#include <cstdint>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// A token for each time that something is done; full at first.
class TokenBucket {
  public:
    /// Whether there is a token. `now` is a monotonic time in nanoseconds; a clock that goes back
    /// adds none.
    bool has(const TokenRate& rate, std::uint64_t now) noexcept {
        fill(rate, now);
        return rate.perSecond > 0 && rate.burst * one >= missing_ + one;
    }
    /// There must be one.
    void take() noexcept { missing_ += one; }

  private:
    static constexpr std::uint64_t one = 1'000'000'000; ///< a token per second is 1 in a nanosecond

    void fill(const TokenRate& rate, std::uint64_t now) noexcept {
        const std::uint64_t passed = now > filledAt_ ? now - filledAt_ : 0;
        filledAt_ = now;
        const bool isFull = rate.perSecond > 0 && passed > missing_ / rate.perSecond;
        missing_ = isFull ? 0 : missing_ - passed * rate.perSecond;
    }

    std::uint64_t filledAt_ = 0;
    std::uint64_t missing_ = 0;
};

/// A number that is the same in all of a run, and that nobody outside can foretell.
std::uint64_t runSeed();

/// A bucket for each sender, so that none takes what others need. Their number is bounded: the
/// senders of a bucket share it, and nobody can choose with whom.
class SenderBuckets {
  public:
    explicit SenderBuckets(std::uint64_t seed = runSeed()) : buckets_(count), seed_(seed) {}

    /// Of packets from the network of `source`, the /24 or, in IPv6, the /56 of a customer (RFC
    /// 6177); `port` is where they came in.
    TokenBucket& of(std::uint32_t port, const Lumo::IpGenAddr& source) noexcept;

  private:
    static constexpr std::size_t count = 1024;

    std::vector<TokenBucket> buckets_;
    std::uint64_t seed_;
};

} // namespace OvixAgent
