#include "Live/ports/Card.h"

#include <dlfcn.h>
#include <filesystem>

#include "Plugin/Loader.h"

namespace OvixAgent {

namespace {

/// Never unloaded, since cards have threads of their own.
OpenCard* loadModule() {
    const std::string path = Plugin::Library::installed("libOvixDpdk.so");
    if (!std::filesystem::exists(path)) {
        throw CardError("kind dpdk needs " + path + ", which package ovix-dpdk has");
    }
    void* const module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    void* const open = module == nullptr ? nullptr : dlsym(module, "ovixOpenCard");
    if (open == nullptr) {
        throw CardError(std::string("kind dpdk: ") + dlerror());
    }
    return reinterpret_cast<OpenCard*>(open);
}

} // namespace

std::unique_ptr<Card> openDpdkCard(const CardOptions& options) {
    static OpenCard* const open = loadModule();
    return std::unique_ptr<Card>(open(options));
}

} // namespace OvixAgent
