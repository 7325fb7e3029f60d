#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Capture/CaptureDirectory.h"
#include "Config/ConfigTypes.h"
#include "State/TransmitPort.h"

namespace OvixAgent {

/// The output captures as ports: one per configured port, and behind them the CPU's and the
/// loopback interface's.
class CaptureOutputs {
  public:
    /// `inputs`: the captures that are read, which no output may overwrite.
    CaptureOutputs(const std::string& directory, const std::vector<std::string>& inputs,
                   const AgentConfig& config, TimePrecision precision);

    TransmitPort& port(std::size_t index) const { return *ports_[index]; }
    TransmitPort& cpu() const { return *ports_[ports_.size() - 2]; }
    TransmitPort& loopback() const { return *ports_.back(); }
    /// Throws CaptureError when what is buffered cannot be written.
    void close() { captures_.close(); }

  private:
    CaptureDirectory captures_;
    std::vector<std::unique_ptr<TransmitPort>> ports_;
};

} // namespace OvixAgent
