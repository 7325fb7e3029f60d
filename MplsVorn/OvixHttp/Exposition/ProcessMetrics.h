#pragma once

#include <prometheus/metric_family.h>
#include <vector>

namespace OvixHttp {

/// Processor time, memory, descriptors and start of this process, by the names that exporters have
/// in common.
std::vector<prometheus::MetricFamily> metricsOfProcess();

} // namespace OvixHttp
