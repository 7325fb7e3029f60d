#pragma once

#include <cstdint>
#include <string>

#include "Ovix/plugin/OvixPlugin.h"
#include "Ovix/plugin/Ports.h"
#include "State/PortTable.h"
#include "State/TransmitPort.h"

namespace OvixAgent {

/// Loads the plugin library (empty: the one that comes with the agent), starts its plugin with the
/// context and takes it through its life up to active. Throws Plugin::LoadError.
void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context);

/// Takes the plugins that a context holds from their initialised state to active.
void activatePlugins(const Ptr<Ovix::PluginContext>& context);

/// The frame that is being taken down the road, for what is sent because of it past the road.
struct FrameInHand {
    const Frame* frame = nullptr;
    std::uint64_t toCpu = 0; ///< packets that a plugin has handed to the CPU because of it
};

/// Offers plugins the agent's ports and, as CPU 0, the device's own: what they send there leaves at
/// the time of the frame in hand. The tables, `cpu` and `inHand` must outlive the last frame.
void offerPorts(Ovix::Ports& ports, PortTable& table, TransmitPort& cpu, FrameInHand& inHand);

} // namespace OvixAgent
