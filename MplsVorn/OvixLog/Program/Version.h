#pragma once

#include <string>
#include <string_view>

namespace OvixLog {

/// The version of all programs, as in "1.2.3".
std::string_view version() noexcept;

/// What `--version` prints: program and version on the first line, then the commit, the compiler,
/// the options of the build and the versions of the libraries, a line each, without the last break.
std::string versionText(std::string_view program);

} // namespace OvixLog
