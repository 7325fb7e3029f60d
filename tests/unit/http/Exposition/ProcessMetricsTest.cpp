#include "Exposition/ProcessMetrics.h"

#include <gtest/gtest.h>

namespace ProcessMetricsTest {

TEST(ProcessMetrics, TheProcessIsShownByTheUsualNames) {
    for (const prometheus::MetricFamily& family : OvixHttp::metricsOfProcess()) {
        const auto& metric = family.metric.at(0);
        EXPECT_GT(metric.counter.value + metric.gauge.value, 0) << family.name;
    }
}

} // namespace ProcessMetricsTest
