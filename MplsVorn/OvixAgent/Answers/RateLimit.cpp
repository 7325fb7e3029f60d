#include "Answers/RateLimit.h"

namespace OvixAgent {

namespace {

std::size_t numberOf(AnswerReason reason) noexcept {
    return static_cast<std::size_t>(reason);
}

} // namespace

RateLimit::RateLimit(const AnswerLimits& limits, std::uint64_t seed) : limits_(limits) {
    for (std::size_t i = 0; i < limits_.size(); ++i) {
        buckets_.push_back({{}, SenderBuckets(seed)});
    }
}

bool RateLimit::isOff(AnswerReason reason) const noexcept {
    const AnswerRates& rates = limits_[numberOf(reason)];
    const auto isNone = [](const TokenRate& rate) {
        return rate.perSecond == 0 || rate.burst == 0;
    };
    return isNone(rates.all) || isNone(rates.perSource);
}

bool RateLimit::mayAdmit(AnswerReason reason, std::uint64_t now) noexcept {
    return buckets_[numberOf(reason)].all.has(limits_[numberOf(reason)].all, now);
}

bool RateLimit::mayAdmit(AnswerReason reason, std::uint32_t port, const Lumo::IpGenAddr& source,
                         std::uint64_t now) noexcept {
    return mayAdmit(reason, now) && buckets_[numberOf(reason)]
                                        .bySource.of(port, source)
                                        .has(limits_[numberOf(reason)].perSource, now);
}

void RateLimit::take(AnswerReason reason, std::uint32_t port,
                     const Lumo::IpGenAddr& source) noexcept {
    Buckets& buckets = buckets_[numberOf(reason)];
    buckets.all.take();
    buckets.bySource.of(port, source).take();
}

std::string AnswerCounts::nameOf(AnswerReason reason) {
    return answerReasonNames[numberOf(reason)];
}

std::vector<std::pair<std::string, std::uint64_t>> AnswerCounts::named() const {
    std::vector<std::pair<std::string, std::uint64_t>> all;
    const auto add = [&](const std::string& name, std::uint64_t count) {
        if (count != 0) {
            all.emplace_back(name, count);
        }
    };
    for (std::size_t i = 0; i < answerReasonNames.size(); ++i) {
        const auto reason = static_cast<AnswerReason>(i);
        add(nameOfSent(reason), counts_[i].sent);
        add(nameOfSuppressed(reason), counts_[i].suppressed);
    }
    return all;
}

} // namespace OvixAgent
