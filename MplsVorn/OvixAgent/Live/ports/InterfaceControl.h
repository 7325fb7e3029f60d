#pragma once

#include <cstdint>
#include <string>

#include "Config/ConfigTypes.h"
#include "Live/ports/LivePort.h"

namespace OvixAgent {

/// Throws std::system_error when there is no interface of that name.
unsigned int indexOfInterface(const std::string& name);
std::uint32_t mtuOfInterface(const std::string& name);
/// Zeros when its address is not of six bytes.
MacAddress macOfInterface(const std::string& name);
/// 1 when its driver does not tell.
std::uint32_t receiveQueuesOfInterface(const std::string& name);

/// Whether the interface is still there.
bool isInterface(unsigned int index) noexcept;
/// Whether there is one of that name.
bool isInterface(const std::string& name) noexcept;

/// After a socket of the interface has failed: counts whether the link is down or the interface
/// gone, and returns whether it is still there. The kernel says "network is down" for a link that
/// goes down, which it may come back from, and for an interface that is gone, which it will not:
/// another one of the same name needs another socket.
bool countWhatIsWrong(unsigned int index, LiveCounts& counts) noexcept;

/// Brings the interface up. Throws std::system_error when it cannot be.
void bringUp(const std::string& name);

} // namespace OvixAgent
