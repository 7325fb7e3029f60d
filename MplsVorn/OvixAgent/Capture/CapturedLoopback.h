#pragma once

#include "Lumo/RawTxPam.h"
#include "State/TransmitPort.h"
#include "Summary/Summary.h"

namespace OvixAgent {

/// Stands in for the host's network interfaces in a run on captures: what is sent raw on "lo" goes
/// to a port of the agent's, and nothing leaves the process. There is no other interface.
class CapturedLoopback : public Lumo::RawTxBackend {
  public:
    /// In use from here on until it is destroyed. `out` must outlive it; when `out` throws, so does
    /// sending.
    explicit CapturedLoopback(TransmitPort& out) noexcept : out_(&out) { currentIs(this); }
    ~CapturedLoopback() override { currentIs(nullptr); }

    /// The time of what is sent from here on: that of the frame in hand.
    void timeIs(CaptureTime time) noexcept { time_ = time; }

    const Traffic& sent() const noexcept { return sent_; }

    Ptr<Lumo::RawTxPam> rawTxPam(std::string_view interfaceName) override;
    std::uint32_t interfaceIndex(std::string_view interfaceName) override;

  private:
    class Port;

    void transmit(std::span<const std::uint8_t> bytes);

    TransmitPort* out_;
    CaptureTime time_;
    Traffic sent_;
};

} // namespace OvixAgent
