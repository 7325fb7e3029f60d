#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Ovix/packet/PacketContext.h"
#include "Ovix/plugin/InputPipelineStep.h"
#include "Ovix/plugin/OvixPlugin.h"
#include "Ovix/plugin/Ports.h"
#include "State/Fate.h"
#include "State/Frame.h"
#include "State/PortTable.h"

namespace OvixAgent {

/// Loads the plugin library (empty: the one installed with the agent), registers its plugin with
/// the context and activates it. Throws Plugin::LoadError.
void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context);

/// Activates the registered plugins of a context.
void activatePlugins(const Ptr<Ovix::PluginContext>& context);

/// The frame that is being processed, for the packets that a plugin sends because of it.
struct CurrentFrame {
    const Frame* frame = nullptr;
    std::uint64_t toCpu = 0; ///< packets that a plugin has sent to the CPU
};

/// Registers the agent's ports and its CPU, as CPU 0, with the plugins. What they send has the time
/// of the current frame. The tables, `cpu` and `current` must outlive the last frame.
void registerPorts(Ovix::Ports& ports, PortTable& table, TransmitPort& cpu, CurrentFrame& current);

/// The plugins' steps before routing.
class InputSteps {
  public:
    explicit InputSteps(Ptr<Ovix::AllGenericPipelineSteps> steps) noexcept
        : steps_(std::move(steps)) {}

    /// Runs every step on the packet of the current frame. A packet that a step has modified then
    /// counts as the current frame. Set when a step has settled the frame: it is not routed.
    std::optional<Fate> run(const Ptr<Ovix::PacketContext>& packet, CurrentFrame& current);

  private:
    void replace(CurrentFrame& current, const Ovix::PacketContext& modified);

    Ptr<Ovix::AllGenericPipelineSteps> steps_;
    Frame modified_;
    std::vector<std::uint8_t> modifiedBytes_;
};

} // namespace OvixAgent
