#pragma once

#include "Lumo/RawTxPam.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Replaces the host's network interfaces in a run on captures: a raw frame sent on "lo" goes to a
/// port of the agent, and nothing leaves the process. There is no other interface.
class CapturedLoopback : public Lumo::RawTxBackend {
  public:
    /// Installed until it is destroyed. `cause` is the frame being forwarded, whose time the frames
    /// sent have. They hold it whole: what the capture has cut off counts in their original length.
    /// Both must outlive it; what `out` throws, sending throws.
    CapturedLoopback(TransmitPort& out, const Frame& cause) noexcept : out_(&out), cause_(&cause) {
        currentIs(this);
    }
    ~CapturedLoopback() override { currentIs(nullptr); }

    const Traffic& sent() const noexcept { return sent_; }

    Ptr<Lumo::RawTxPam> rawTxPam(std::string_view interfaceName) override;
    std::uint32_t interfaceIndex(std::string_view interfaceName) override;

  private:
    class Port;

    void transmit(std::span<const std::uint8_t> bytes);

    TransmitPort* out_;
    const Frame* cause_;
    Traffic sent_;
};

} // namespace OvixAgent
