#pragma once

#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// Keeps other processes from a network interface as long as it lives: two that forward the same
/// frames would deliver each twice. It is a socket with an abstract name, of which each network
/// namespace has its own, and which goes with the process however that ends. One that another user
/// has made, who is not root, keeps nobody away.
class InterfaceClaim {
  public:
    /// Throws std::system_error, which names the process that has the interface already.
    explicit InterfaceClaim(unsigned int index);
    InterfaceClaim(const InterfaceClaim&) = delete;
    InterfaceClaim& operator=(const InterfaceClaim&) = delete;
    ~InterfaceClaim();

    /// To be called now and then by the thread that has claims: others who ask whose they are wait
    /// in a queue, which must not become full.
    static void dismissAskers();

  private:
    Posix::FileDescriptor socket_;
};

} // namespace OvixAgent
