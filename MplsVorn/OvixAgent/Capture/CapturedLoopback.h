#pragma once

#include "Lumo/RawTxPam.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Replaces the host's network interfaces in a run on captures: a raw frame sent on "lo" goes to a
/// port of the agent, and nothing leaves the process. There is no other interface.
class CapturedLoopback : public Lumo::RawTxBackend {
  public:
    /// Installed until it is destroyed. `out` must outlive it; what `out` throws, sending throws.
    explicit CapturedLoopback(TransmitPort& out) noexcept : out_(&out) { currentIs(this); }
    ~CapturedLoopback() override { currentIs(nullptr); }

    /// The frame being forwarded, whose time the frames sent from now on have. They hold it whole:
    /// what the capture has cut off counts in their original length.
    void causeIs(const Frame& frame) noexcept {
        time_ = frame.time;
        snapped_ = frame.originalLength - static_cast<std::uint32_t>(frame.bytes.size());
    }

    const Traffic& sent() const noexcept { return sent_; }

    Ptr<Lumo::RawTxPam> rawTxPam(std::string_view interfaceName) override;
    std::uint32_t interfaceIndex(std::string_view interfaceName) override;

  private:
    class Port;

    void transmit(std::span<const std::uint8_t> bytes);

    TransmitPort* out_;
    CaptureTime time_;
    std::uint32_t snapped_ = 0; ///< bytes of the frame that the capture has cut off
    Traffic sent_;
};

} // namespace OvixAgent
