#pragma once

#include <string>
#include <vector>

namespace OvixDpdk {

/// Starts DPDK's environment unless it runs, for this process alone: no files that others see, no
/// devices but those asked for, without hugepages where the system has none free. `more` comes
/// last, so that it prevails. The thread keeps its processors and its signals. Throws
/// OvixAgent::CardError.
void startEal(const std::vector<std::string>& more);

} // namespace OvixDpdk
