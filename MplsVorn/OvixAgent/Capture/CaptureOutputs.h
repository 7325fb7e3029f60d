#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Capture/CaptureWriter.h"
#include "Config/Config.h"

namespace OvixAgent {

/// The captures that a run writes, as ports: `<port>.pcap` for each configured port, `cpu.pcap` and
/// `lo.pcap`, in one directory. Each is created even if nothing is written to it. The frames of a
/// VLAN sub-interface are in the capture of its parent.
class CaptureOutputs {
  public:
    /// Creates the directory with its parents, and the captures. Throws CaptureError when that
    /// fails, and, before anything is created, when an output would overwrite one of `inputs`.
    CaptureOutputs(const std::string& directory, const std::vector<std::string>& inputs,
                   const AgentConfig& config, TimePrecision precision);

    TransmitPort& port(std::size_t index) const { return *ofPort_[index]; }
    TransmitPort& cpu() const { return *writers_[writers_.size() - 2]; }
    TransmitPort& loopback() const { return *writers_.back(); }

    /// Writes what is buffered. Tries every capture, then throws CaptureError for the first that
    /// failed.
    void close();

  private:
    std::vector<std::unique_ptr<CaptureWriter>> writers_; ///< the ports in order, "cpu", "lo"
    std::vector<CaptureWriter*> ofPort_;                  ///< by the configuration's index
};

} // namespace OvixAgent
