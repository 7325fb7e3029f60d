#include "Router.h"

#include "Mpls/Hardware/Status.h"
#include "PluginHost.h"

namespace Bench {

namespace {

OvixAgent::AgentState& started(OvixAgent::AgentState& state) {
    // The plugin is linked in here, so it registered itself before main.
    const Ptr<Ovix::PluginContext>& context = state.pluginContext();
    Plugin::Loader<Ovix::PluginContext>::defaultLoader().runInitCallers(context.get());
    OvixAgent::activatePlugins(context);
    return state;
}

OvixAgent::PortTable& connected(OvixAgent::PortTable& ports, MemoryPort& out) {
    for (OvixAgent::Port& port : ports.ports()) {
        port.out = &out;
    }
    return ports;
}

} // namespace

Router::Router(const OvixAgent::AgentConfig& config)
    : state_(config, "bench"), ports_(config.ports), neighbours_(config),
      forwarder_(started(state_).manager(), connected(ports_, out_), neighbours_, out_) {}

const Mpls::Hardware::Status& Router::hardware() const {
    return *state_.pluginContext()
                ->entityManager()
                ->fetch<Mpls::Hardware::Status>("routing/hardware/mpls/status")
                .entity;
}

} // namespace Bench
