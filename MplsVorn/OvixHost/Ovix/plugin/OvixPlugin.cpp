#include "Ovix/plugin/OvixPlugin.h"

#include <algorithm>

template <>
Plugin::Loader<Ovix::PluginContext>& Plugin::Loader<Ovix::PluginContext>::defaultLoader() {
    static Loader loader("Ovix::PluginContext");
    return loader;
}

namespace Ovix {

ToggleService& ToggleService::instance() {
    static ToggleService service;
    return service;
}

void PluginContext::pluginIs(OvixPlugin& plugin) {
    if (std::find(plugins_.begin(), plugins_.end(), &plugin) == plugins_.end()) {
        plugins_.push_back(&plugin);
    }
}

void PluginContext::pluginDel(OvixPlugin& plugin) noexcept {
    std::erase(plugins_, &plugin);
}

OvixPlugin::~OvixPlugin() {
    pluginCtxIs(nullptr);
}

void OvixPlugin::pluginCtxIs(Ptr<PluginContext> context) {
    if (pluginCtx_ == context) {
        return;
    }
    if (pluginCtx_) {
        pluginCtx_->pluginDel(*this);
    }
    pluginCtx_ = std::move(context);
}

void OvixPlugin::savePluginRef(const Ptr<Tessel::EntityManager>& entityManager) {
    entityManager_ = entityManager;
    if (pluginCtx_) {
        pluginCtx_->pluginIs(*this);
    }
}

} // namespace Ovix
