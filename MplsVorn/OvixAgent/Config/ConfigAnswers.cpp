#include "Config/ConfigSections.h"

namespace OvixAgent {

namespace {

constexpr std::uint32_t maxRate = 1'000'000;

/// Without a burst of its own, as many at once as in a second.
TokenRate readRate(const ConfigMap& map, std::string_view rateKey, std::string_view burstKey,
                   const TokenRate& otherwise) {
    const auto rate = map.optionalNumber<std::uint32_t>(rateKey, 1, maxRate);
    const auto burst = map.optionalNumber<std::uint32_t>(burstKey, 1, maxRate);
    return {rate.value_or(otherwise.perSecond), burst.value_or(rate.value_or(otherwise.burst))};
}

AnswerRates readRates(const ConfigValue& value) {
    AnswerRates rates;
    if (value.kind() == ConfigValue::Kind::scalar) {
        return value.boolean() ? rates : AnswerRates{{}, {}};
    }
    const ConfigMap map(value);
    rates.all = readRate(map, "per-second", "burst", rates.all);
    rates.perSource = readRate(map, "source-per-second", "source-burst", rates.perSource);
    map.refuseOthers();
    return rates;
}

} // namespace

AnswerLimits readAnswers(const ConfigValue& value) {
    const ConfigMap map(value);
    AnswerLimits limits;
    for (const auto& [word, reason] : Tessel::words<AnswerReason>) {
        if (const auto given = map.find(word)) {
            limits[static_cast<std::size_t>(reason)] = readRates(*given);
        }
    }
    map.refuseOthers();
    return limits;
}

} // namespace OvixAgent
