#pragma once

#include <string>

namespace OvixAgent {

/// Where an agent is reached while it runs: NAME.sock in $OVIX_RUNTIME_DIR, else in /run/ovix for
/// root and in ovix under $XDG_RUNTIME_DIR or /tmp/ovix-UID for everybody else.
std::string controlPath(const std::string& name);

} // namespace OvixAgent
