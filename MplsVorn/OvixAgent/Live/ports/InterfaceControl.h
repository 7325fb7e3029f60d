#pragma once

#include <cstdint>
#include <string>

#include "Config/Config.h"
#include "Live/ports/LivePort.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

// These throw std::system_error when there is no interface of that name.

unsigned int indexOfInterface(const std::string& name);
std::uint32_t mtuOfInterface(const std::string& name);
/// Zeros when its address is not of six bytes.
Lumo::EthAddr macOfInterface(const std::string& name);
/// 1 when its driver does not report it.
std::uint32_t receiveQueuesOfInterface(const std::string& name);

/// Whether there is an interface of that index, as far as it can be asked, or name.
bool isInterface(unsigned int index) noexcept;
bool isInterface(const std::string& name) noexcept;

/// What the interface of a port is called now: it is known by its index since the port was open,
/// and may have been renamed. The port's name when no interface has the index.
std::string nameOfInterface(unsigned int index, const std::string& portName);

/// Whether the interface of a socket has been removed. `hasFailed`: the socket says that the
/// network is down, which the kernel reports both for a link that is down, from which the socket
/// recovers, and for a removed interface, from which it does not: counted as linkDown or
/// interfaceGone. An interface that is removed later goes down first, and the socket says nothing
/// more: `wasDown` keeps that it may still go.
bool hasInterfaceGone(unsigned int index, bool hasFailed, bool& wasDown,
                      LiveCounts& counts) noexcept;

/// Reads flags of interfaces, without waiting for whoever configures some interface meanwhile.
class InterfaceFlags {
  public:
    InterfaceFlags() noexcept;
    /// Whether an interface of that name is known to be down, or not operational.
    bool isDown(const std::string& name) const noexcept;

  private:
    Posix::FileDescriptor socket_;
};

// These throw std::system_error.

void bringUp(const std::string& name);
void setMacOfInterface(const std::string& name, const Lumo::EthAddr& mac);
void setMtuOfInterface(const std::string& name, std::uint32_t mtu);

} // namespace OvixAgent
