#include "Answers/RateLimit.h"

#include <cassert>

namespace OvixAgent {

namespace {

constexpr std::uint64_t oneAnswer = 1'000'000'000;

} // namespace

// An answer per second is a billionth of one per nanosecond.
RateLimit::RateLimit(AnswerRate rate) noexcept
    : perNanosecond_(rate.perSecond), most_(rate.perSecond != 0 ? rate.burst * oneAnswer : 0) {
    for (Bucket& bucket : buckets_) {
        bucket.tokens = most_;
    }
}

bool RateLimit::mayAdmit(AnswerReason reason, std::uint64_t now) noexcept {
    Bucket& bucket = of(reason);
    fill(bucket, now);
    return bucket.tokens >= oneAnswer;
}

bool RateLimit::admit(AnswerReason reason, std::uint64_t now) noexcept {
    if (!mayAdmit(reason, now)) {
        return false;
    }
    of(reason).tokens -= oneAnswer;
    return true;
}

void RateLimit::fill(Bucket& bucket, std::uint64_t now) const noexcept {
    assert(bucket.tokens <= most_);
    const std::uint64_t passed = now > bucket.filledAt ? now - bucket.filledAt : 0;
    bucket.filledAt = now;
    const std::uint64_t missing = most_ - bucket.tokens;
    const bool isFull = perNanosecond_ == 0 || passed >= missing / perNanosecond_ + 1;
    bucket.tokens = isFull ? most_ : bucket.tokens + passed * perNanosecond_;
}

std::vector<std::pair<std::string, std::uint64_t>> AnswerCounts::named() const {
    std::vector<std::pair<std::string, std::uint64_t>> all;
    const auto add = [&](const std::string& name, std::uint64_t count) {
        if (count != 0) {
            all.emplace_back(name, count);
        }
    };
    for (std::size_t i = 0; i < answerReasonNames.size(); ++i) {
        add(answerReasonNames[i] + std::string(": sent"), counts_[i].sent);
        add(answerReasonNames[i] + std::string(": suppressed"), counts_[i].suppressed);
    }
    return all;
}

} // namespace OvixAgent
