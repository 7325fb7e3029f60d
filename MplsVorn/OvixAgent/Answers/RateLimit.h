#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace OvixAgent {

/// Why an answer is sent.
enum class AnswerReason : std::uint8_t { timeExceeded, tooBig, unreachable, lspEcho };

inline constexpr std::array<const char*, 4> answerReasonNames{"time exceeded", "too big",
                                                              "unreachable", "LSP echo"};

/// The rate of answers per reason. No answers are sent when either is 0.
struct AnswerRate {
    std::uint32_t perSecond = 100;
    std::uint32_t burst = 100;
};

/// Limits the answers to frames by a token bucket per reason (RFC 1812 section 4.3.2.8, RFC 4443
/// section 2.4 f). Each bucket is full at first.
class RateLimit {
  public:
    explicit RateLimit(AnswerRate rate = {}) noexcept;

    /// Whether an answer may be sent now.
    bool mayAdmit(AnswerReason reason, std::uint64_t now) noexcept;

    /// Whether an answer may be sent; if so, takes its token. `now` is a monotonic time in
    /// nanoseconds; a clock that goes back adds no tokens.
    bool admit(AnswerReason reason, std::uint64_t now) noexcept;

  private:
    struct Bucket {
        std::uint64_t filledAt = 0; ///< time of `tokens`
        std::uint64_t tokens = 0;   ///< in billionths of an answer
    };

    Bucket& of(AnswerReason reason) noexcept { return buckets_[static_cast<std::size_t>(reason)]; }
    void fill(Bucket& bucket, std::uint64_t now) const noexcept;

    std::uint64_t perNanosecond_; ///< in billionths of an answer
    std::uint64_t most_;          ///< likewise
    std::array<Bucket, answerReasonNames.size()> buckets_;
};

/// Counts the answers sent, and those suppressed because they exceeded the limit.
class AnswerCounts {
  public:
    void sent(AnswerReason reason) noexcept { ++of(reason).sent; }
    void suppressed(AnswerReason reason) noexcept { ++of(reason).suppressed; }

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
