#pragma once

#include <string>

#include "Ovix/plugin/OvixPlugin.h"

namespace OvixAgent {

/// Loads the plugin library (empty: the one that comes with the agent), starts its plugin with the
/// context and takes it through its life up to active. Throws Plugin::LoadError.
void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context);

/// Takes the plugins that a context holds from their initialised state to active.
void activatePlugins(const Ptr<Ovix::PluginContext>& context);

} // namespace OvixAgent
