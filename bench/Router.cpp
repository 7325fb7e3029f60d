#include "Router.h"

#include "Mpls/Hardware/Status.h"
#include "PluginHost.h"

namespace Bench {

namespace {

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
    : state_(config, "bench"), tables_(config),
      forwarder_(started(state_).manager(), connected(tables_, out_), out_) {}

const Mpls::Hardware::Status& Router::hardware() const {
    return *state_.pluginContext()
                ->entityManager()
                ->fetch<Mpls::Hardware::Status>("routing/hardware/mpls/status")
                .entity;
}

} // namespace Bench
