#pragma once

#include "MplsOvixPlugin.h"
#include "Plugin/Loader.h"

namespace Ovix {

/// The plugin's one instance: registers itself with the agent's loader while the library is loaded,
/// and makes the main object when the loader starts it.
class OvixMplsPluginInst : public Plugin::PluginInstBase<PluginContext> {
  public:
    OvixMplsPluginInst() : PluginInstBase("OvixMplsPlugin", "Mpls") {}

    /// Called again, it replaces the main object.
    void init(PluginContext* context) override;

    /// Empty until `init`.
    const Ptr<MplsOvixPlugin>& plugin() const noexcept { return plugin_; }

  private:
    Ptr<MplsOvixPlugin> plugin_;
};

} // namespace Ovix
