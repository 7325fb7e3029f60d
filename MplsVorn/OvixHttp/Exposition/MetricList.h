#pragma once

#include <initializer_list>
#include <prometheus/metric_family.h>
#include <string>
#include <utility>
#include <vector>

namespace OvixHttp {

/// Metrics in the order in which they are added; those of one name must come one after the other.
class MetricList {
  public:
    using Labels = std::vector<prometheus::ClientMetric::Label>;

    void counter(const char* name, const char* help, double value, Labels labels = {}) {
        added(name, help, prometheus::MetricType::Counter, std::move(labels)).counter.value = value;
    }
    void gauge(const char* name, const char* help, double value, Labels labels = {}) {
        added(name, help, prometheus::MetricType::Gauge, std::move(labels)).gauge.value = value;
    }
    std::vector<prometheus::MetricFamily> taken() && { return std::move(families_); }

  private:
    prometheus::ClientMetric& added(const char* name, const char* help, prometheus::MetricType type,
                                    Labels labels) {
        if (families_.empty() || families_.back().name != name) {
            families_.push_back({name, help, type, {}});
        }
        prometheus::ClientMetric& metric = families_.back().metric.emplace_back();
        metric.label = std::move(labels);
        return metric;
    }

    std::vector<prometheus::MetricFamily> families_;
};

} // namespace OvixHttp
