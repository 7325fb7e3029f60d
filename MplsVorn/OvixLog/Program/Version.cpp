#include "Program/Version.h"

namespace OvixLog {

std::string_view version() noexcept {
    return OVIX_VERSION;
}

// The build defines what is not known here.
std::string versionText(std::string_view program) {
    constexpr std::string_view commit =
#include <Commit.inc>
        ;
    std::string text(program);
    text.append(" ").append(version());
    text.append("\ncommit:    ").append(commit);
    text.append("\ncompiler:  ").append(OVIX_COMPILER);
    text.append("\noptions:   ").append(OVIX_OPTIONS);
    text.append("\nlibraries: ").append(OVIX_LIBRARIES);
    return text;
}

} // namespace OvixLog
