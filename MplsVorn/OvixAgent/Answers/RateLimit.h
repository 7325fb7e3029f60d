#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Config/Config.h"
#include "State/TokenBucket.h"

namespace OvixAgent {

/// The names of the reasons in counts.
inline constexpr std::array<const char*, 4> answerReasonNames{"time exceeded", "too big",
                                                              "unreachable", "LSP echo"};

/// Limits the answers to packets (RFC 1812 section 4.3.2.8, RFC 4443 section 2.4 f): all of a
/// reason, and those to each source, so that none takes the answers of all others. `now` is a
/// monotonic time in nanoseconds.
class RateLimit {
  public:
    explicit RateLimit(const AnswerLimits& limits, std::uint64_t seed = runSeed());

    void configure(const AnswerLimits& limits) noexcept { limits_ = limits; }

    /// Whether none is ever sent.
    bool isOff(AnswerReason reason) const noexcept;
    /// Whether an answer may be sent now to some source.
    bool mayAdmit(AnswerReason reason, std::uint64_t now) noexcept;
    /// Whether one may be sent to the source of a packet that came in at `port`.
    bool mayAdmit(AnswerReason reason, std::uint32_t port, const Lumo::IpGenAddr& source,
                  std::uint64_t now) noexcept;
    /// It is sent.
    void take(AnswerReason reason, std::uint32_t port, const Lumo::IpGenAddr& source) noexcept;

  private:
    struct Buckets {
        TokenBucket all;
        SenderBuckets bySource;
    };

    AnswerLimits limits_;
    std::vector<Buckets> buckets_; ///< by reason
};

/// Counts the answers sent, and those suppressed because they exceeded the limit.
class AnswerCounts {
  public:
    void sent(AnswerReason reason) noexcept { ++of(reason).sent; }
    void suppressed(AnswerReason reason) noexcept { ++of(reason).suppressed; }

    static std::string nameOf(AnswerReason reason);
    static std::string nameOfSent(AnswerReason reason) { return nameOf(reason) + ": sent"; }
    static std::string nameOfSuppressed(AnswerReason reason) {
        return nameOf(reason) + ": suppressed";
    }

    /// Those above zero, by name: "time exceeded: sent", "LSP echo: suppressed".
    std::vector<std::pair<std::string, std::uint64_t>> named() const;

  private:
    struct Count {
        std::uint64_t sent = 0;
        std::uint64_t suppressed = 0;
    };

    Count& of(AnswerReason reason) noexcept { return counts_[static_cast<std::size_t>(reason)]; }

    std::array<Count, answerReasonNames.size()> counts_;
};

} // namespace OvixAgent
