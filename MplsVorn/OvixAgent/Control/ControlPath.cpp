#include "Control/ControlPath.h"

#include <cstdlib>
#include <fmt/format.h>
#include <unistd.h>

namespace OvixAgent {

std::string controlPath(const std::string& name) {
    const auto environment = [](const char* variable) {
        const char* value = std::getenv(variable);
        return std::string(value != nullptr ? value : "");
    };
    std::string directory = environment("OVIX_RUNTIME_DIR");
    if (directory.empty() && geteuid() == 0) {
        directory = "/run/ovix";
    } else if (directory.empty()) {
        const std::string perUser = environment("XDG_RUNTIME_DIR");
        directory = perUser.empty() ? fmt::format("/tmp/ovix-{}", geteuid()) : perUser + "/ovix";
    }
    return directory + "/" + name + ".sock";
}

} // namespace OvixAgent
