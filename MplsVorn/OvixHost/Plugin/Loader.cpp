#include "Plugin/Loader.h"

#include <dlfcn.h>
#include <filesystem>

namespace Plugin {

void Library::load(const std::string& file) {
    if (file.empty()) { // which would name the program itself
        throw LoadError("cannot load plugin: the file name is empty");
    }
    if (dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE) == nullptr) {
        const char* reason = dlerror(); // NOLINT(concurrency-mt-unsafe): main thread, at start-up
        throw LoadError("cannot load plugin " + file + ": " +
                        (reason != nullptr ? reason : "unknown reason"));
    }
}

std::string Library::installed(const std::string& name) {
    Dl_info host{};
    if (dladdr(reinterpret_cast<const void*>(&Library::load), &host) == 0) {
        throw LoadError("the host's library cannot be found");
    }
    return std::filesystem::canonical(host.dli_fname).replace_filename(name);
}

} // namespace Plugin
