#include "Metrics/MetricsServer.h"

#include <chrono>
#include <exception>
#include <iterator>
#include <mutex>
#include <prometheus/exposer.h>
#include <stdexcept>
#include <utility>
#include <vector>

#include "Control/ControlClient.h"
#include "Metrics/AgentMetrics.h"
#include "Posix/WithoutSignals.h"

namespace OvixAgent {

namespace {

using Clock = std::chrono::steady_clock;

class Collector : public prometheus::Collectable {
  public:
    explicit Collector(std::string control) : control_(std::move(control)) {}

    std::vector<prometheus::MetricFamily> Collect() const override {
        constexpr std::chrono::milliseconds freshFor{200};
        const std::lock_guard lock(mutex_);
        if (const auto now = Clock::now(); families_.empty() || now - collected_ >= freshFor) {
            families_ = metricsOf(answers());
            std::vector<prometheus::MetricFamily> own = metricsOfProcess();
            std::move(own.begin(), own.end(), std::back_inserter(families_));
            collected_ = now;
        }
        return families_;
    }

  private:
    /// None further when one is missing: the agent may be ending, and waits for this.
    AgentAnswers answers() const {
        constexpr std::chrono::seconds longest{1};
        AgentAnswers all;
        for (const auto& [command, answer] :
             {std::pair("status", &all.status), std::pair("fates", &all.fates),
              std::pair("ports", &all.ports), std::pair("vrfs", &all.vrfs),
              std::pair("events", &all.events)}) {
            auto line =
                askAgent(control_, std::string(R"({"command":")") + command + R"("})", longest);
            if (!line) {
                break;
            }
            *answer = std::move(line).value();
        }
        return all;
    }

    std::string control_;
    mutable std::mutex mutex_;
    mutable std::vector<prometheus::MetricFamily> families_;
    mutable Clock::time_point collected_;
};

/// A client that is slow or idle holds one of two threads for no longer than two seconds.
std::vector<std::string> serverOptions(const std::string& address) {
    return {"listening_ports",   address, "num_threads",      "2",   "request_timeout_ms", "2000",
            "enable_keep_alive", "no",    "max_request_size", "4096"};
}

} // namespace

struct MetricsServer::Parts {
    std::shared_ptr<prometheus::Collectable> collector;
    std::unique_ptr<prometheus::Exposer> exposer; ///< the first to end
};

MetricsServer::MetricsServer(const std::string& address, std::string control)
    : parts_(std::make_unique<Parts>()) {
    parts_->collector = std::make_shared<Collector>(std::move(control));
    const Posix::WithoutSignals here;
    try {
        parts_->exposer = std::make_unique<prometheus::Exposer>(serverOptions(address));
    } catch (const std::exception&) { // whose text says nothing
        throw std::runtime_error("--metrics: cannot listen at " + address +
                                 ": is the address this machine's, and the port free?");
    }
    parts_->exposer->RegisterCollectable(parts_->collector);
}

MetricsServer::~MetricsServer() = default;

} // namespace OvixAgent
