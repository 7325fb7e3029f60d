#include "Capture/CaptureOutputs.h"

namespace OvixAgent {

namespace {

/// One of the output captures.
class CapturePort : public TransmitPort {
  public:
    CapturePort(CaptureDirectory& captures, std::size_t index)
        : captures_(&captures), index_(index) {}
    void transmit(const Frame& frame) override { captures_->write(index_, frame); }

  private:
    CaptureDirectory* captures_;
    std::size_t index_;
};

std::vector<std::string> names(const AgentConfig& config) {
    std::vector<std::string> all;
    for (const PortConfig& port : config.ports) {
        all.push_back(port.name);
    }
    all.emplace_back("cpu");
    all.emplace_back("lo");
    return all;
}

} // namespace

CaptureOutputs::CaptureOutputs(const std::string& directory, const std::vector<std::string>& inputs,
                               const AgentConfig& config, TimePrecision precision)
    : captures_(directory, names(config), inputs, precision) {
    for (std::size_t i = 0; i < config.ports.size() + 2; ++i) {
        ports_.push_back(std::make_unique<CapturePort>(captures_, i));
    }
}

} // namespace OvixAgent
