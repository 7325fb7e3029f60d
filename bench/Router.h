#pragma once

#include <optional>

#include "FastPath/FastPath.h"
#include "Forwarding/Forwarder.h"
#include "Mpls/Hardware/Status.h"
#include "Scenarios.h"
#include "State/Frame.h"
#include "Tables/AgentState.h"

namespace Bench {

/// A port that takes frames and keeps nothing but their number.
class MemoryPort : public OvixAgent::TransmitPort {
  public:
    void transmit(const OvixAgent::Frame& frame) override {
        ++frames_;
        bytes_ += frame.bytes.size();
    }
    void transmitBurst(std::span<const OvixAgent::Frame> frames) override {
        frames_ += frames.size();
        for (const OvixAgent::Frame& frame : frames) {
            bytes_ += frame.bytes.size();
        }
    }
    std::uint64_t frames() const noexcept { return frames_; }

  private:
    std::uint64_t frames_ = 0;
    std::uint64_t bytes_ = 0;
};

/// The agent's whole road on in-memory ports, with the plugin active.
class Router {
  public:
    /// The label tables are the configuration's.
    explicit Router(const OvixAgent::AgentConfig& config);
    /// The label tables are those that somebody else publishes.
    Router(const OvixAgent::AgentConfig& config, Ptr<Tessel::TableReader> tables);

    Mpls::PublishedTables& tables() noexcept { return state_->tables(); }

    OvixAgent::Forwarder& forwarder() noexcept { return forwarder_; }
    /// Made with the first call.
    OvixAgent::FastPath& fastPath();
    const OvixAgent::PortTable& ports() const noexcept { return tables_.ports; }
    /// Frames that left, those to the CPU and the exception frames of all routers included.
    std::uint64_t framesOut() const noexcept { return out_.frames() + loopback_->frames(); }
    Ptr<Ovix::RoutingHandler> mplsHandler() const {
        return state_->manager()->routingHandlers()->handler("Mpls");
    }
    const Ptr<Ovix::InputPipelineStep>& inputStep() const {
        return state_->manager()->genericPipelineSteps()->steps().front();
    }
    const Mpls::Hardware::Status& hardware() const { return *state_->tables().hardware(); }

  private:
    std::unique_ptr<OvixAgent::AgentState> state_;
    OvixAgent::ForwardingTables tables_;
    MemoryPort out_;
    OvixAgent::Forwarder forwarder_;
    std::optional<OvixAgent::FastPath> fastPath_;
    const MemoryPort* loopback_;
};

} // namespace Bench
