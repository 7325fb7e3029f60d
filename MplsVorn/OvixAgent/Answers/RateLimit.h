#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace OvixAgent {

/// Why an answer is sent.
enum class AnswerReason : std::uint8_t { timeExceeded, tooBig, lspEcho };

inline constexpr std::size_t answerReasons = 3;

/// Answers per reason: as many as `burst` at once, and `perSecond` in the long run.
struct AnswerRate {
    std::uint32_t perSecond = 100; ///< 0: none at all
    std::uint32_t burst = 100;     ///< likewise
};

/// Bounds the answers to frames, per reason, as a token bucket does (RFC 1812 section 4.3.2.8,
/// RFC 4443 section 2.4 f). Each reason starts with a full bucket.
class RateLimit {
  public:
    explicit RateLimit(AnswerRate rate = {}) noexcept;

    /// Whether one more answer may be sent; it then counts as sent. `now` is the time in
    /// nanoseconds by a clock that does not go back; where it does, what it lost counts for
    /// nothing.
    bool admit(AnswerReason reason, std::uint64_t now) noexcept;

  private:
    struct Bucket {
        std::uint64_t filledAt = 0; ///< when `tokens` were counted
        std::uint64_t tokens = 0;   ///< in billionths of an answer
    };

    Bucket& of(AnswerReason reason) noexcept { return buckets_[static_cast<std::size_t>(reason)]; }
    void fill(Bucket& bucket, std::uint64_t now) const noexcept;

    std::uint64_t perNanosecond_; ///< in billionths of an answer
    std::uint64_t most_;          ///< likewise
    std::array<Bucket, answerReasons> buckets_;
};

/// How many answers were sent, and how many there would have been that were suppressed because
/// there were too many.
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

    std::array<Count, answerReasons> counts_;
};

} // namespace OvixAgent
