#include "Forwarding/PluginHost.h"

#include <filesystem>

#include "Plugin/Library.h"

namespace OvixAgent {

namespace {

constexpr const char* pluginFile = "libMplsOvixPlugin.so";

std::string pluginBesideAgent() {
    const std::filesystem::path self = std::filesystem::canonical("/proc/self/exe");
    return (self.parent_path().parent_path() / "lib" / pluginFile).string();
}

} // namespace

void startPlugin(const std::string& file, const Ptr<Ovix::PluginContext>& context) {
    const std::string path = file.empty() ? pluginBesideAgent() : file;
    auto& loader = Plugin::Loader<Ovix::PluginContext>::defaultLoader();
    Plugin::Library::load(path);
    if (loader.registrations().empty()) {
        throw Plugin::LoadError(path + " registers no plugin");
    }
    loader.runInitCallers(context.get());
    activatePlugins(context);
}

void activatePlugins(const Ptr<Ovix::PluginContext>& context) {
    for (Ovix::OvixPlugin* plugin : context->plugins()) {
        plugin->createLocalEntities();
        plugin->mountsComplete(context->entityManager());
        plugin->setupPluginManager();
        plugin->activeInit();
    }
}

} // namespace OvixAgent
