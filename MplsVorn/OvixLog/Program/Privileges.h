#pragma once

#include <initializer_list>

namespace OvixLog {

/// Gives up every capability but these (capabilities(7), CAP_NET_RAW and so on) for good: what this
/// process and those that it starts have of them stays, and no program that they execute gets more.
/// To be called before there are other threads, which would keep theirs. Throws std::system_error.
void keepCapabilities(std::initializer_list<int> kept);

} // namespace OvixLog
