#include "Capture/CapturedLoopback.h"

#include "Tessel/Slab.h"

namespace OvixAgent {

namespace {

constexpr std::string_view loopback = "lo";
constexpr std::uint32_t loopbackIndex = 1;

} // namespace

class CapturedLoopback::Port : public Lumo::RawTxPam, public Tessel::Slabbed<Port> {
  public:
    explicit Port(CapturedLoopback& to) noexcept : to_(&to) {}

    void enabledIs(bool enabled) override { enabled_ = enabled; }
    void ethProtocolIs(std::uint16_t) override {}
    bool send(const Ptr<Lumo::Pkt>& packet, std::uint32_t interfaceIndex) override {
        if (!enabled_ || interfaceIndex != loopbackIndex) {
            return false;
        }
        to_->transmit(packet->data());
        return true;
    }

  private:
    CapturedLoopback* to_;
    bool enabled_ = false;
};

Ptr<Lumo::RawTxPam> CapturedLoopback::rawTxPam(std::string_view) {
    return Tessel::make<Port>(*this);
}

std::uint32_t CapturedLoopback::interfaceIndex(std::string_view interfaceName) {
    return interfaceName == loopback ? loopbackIndex : 0;
}

void CapturedLoopback::transmit(std::span<const std::uint8_t> bytes) {
    const auto length = static_cast<std::uint32_t>(bytes.size());
    const auto snapped = cause_->originalLength - static_cast<std::uint32_t>(cause_->bytes.size());
    out_->transmit({0, cause_->time, bytes, length + snapped});
    sent_.add(bytes.size());
}

} // namespace OvixAgent
