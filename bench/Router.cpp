#include "Router.h"

#include "Capture/CapturedLoopback.h"
#include "Forwarding/PluginHost.h"

namespace Bench {

namespace {

/// Where all routers' exception frames go: like the process' raw sockets, which it stands in for,
/// it is there once.
MemoryPort& loopback() {
    static MemoryPort frames;
    static const OvixAgent::Frame cause; // whose time does not matter
    static OvixAgent::CapturedLoopback captured(frames, cause);
    return frames;
}

OvixAgent::AgentState& started(OvixAgent::AgentState& state) {
    OvixAgent::startPlugin("", state.pluginContext());
    return state;
}

OvixAgent::ForwardingTables& connected(OvixAgent::ForwardingTables& tables, MemoryPort& out) {
    for (OvixAgent::Port& port : tables.ports.ports()) {
        port.out = &out;
    }
    return tables;
}

} // namespace

Router::Router(const OvixAgent::AgentConfig& config)
    : state_(OvixAgent::AgentState::ofConfig(config, "bench").value()), tables_(config),
      forwarder_(started(*state_).manager(), connected(tables_, out_), out_),
      loopback_(&loopback()) {}

Router::Router(const OvixAgent::AgentConfig& config, Ptr<Tessel::TableReader> tables)
    : state_(std::make_unique<OvixAgent::AgentState>(config, std::move(tables), "bench")),
      tables_(config), forwarder_(started(*state_).manager(), connected(tables_, out_), out_),
      loopback_(&loopback()) {}

OvixAgent::FastPath& Router::fastPath() {
    if (!fastPath_) {
        fastPath_.emplace(forwarder_, state_->manager(), tables_, state_->tables());
    }
    return *fastPath_;
}

} // namespace Bench
