#pragma once

#include <sys/types.h>
#include <vector>

#include "Live/carrier/LinkPower.h"
#include "Live/ports/LivePorts.h"
#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// Lets neighbours hear of the agent's end: the links of its packet and xdp ports are up only while
/// it forwards. A process beside it, the holder, takes them down when the agent has ended, however
/// that came about (the kernel then closes the pipe between the two); the next agent brings those
/// up again. A TAP device needs none of this: it loses its carrier with the file.
class Carrier {
  public:
    /// Starts the holder, which takes care of the ports' links from now on. The ports must outlive
    /// it. Throws std::system_error, also when the process may not take links down.
    explicit Carrier(LivePorts& ports);
    Carrier(const Carrier&) = delete;
    Carrier& operator=(const Carrier&) = delete;
    ~Carrier();

    /// Brings up what was taken down, and takes care of links that are new: to be called when
    /// frames are forwarded, and then about once a second. Starts the holder again if it has ended.
    void hold();

  private:
    void startHolder();
    void tellHolder();
    bool hasHolderEnded();

    LivePorts* ports_;
    LinkPower power_;
    pid_t holder_ = -1;
    Posix::FileDescriptor pipe_;
    std::vector<unsigned int> held_; ///< the interfaces that the holder knows, by port
};

/// Brings the ports' links up that an agent before this one has taken down, as far as the process
/// may: for a run whose own end is not to be heard of.
void giveBackLinks(LivePorts& ports);

/// The name that the holder goes by, as its first argument.
inline constexpr const char* carrierHolder = "ovix-carrier";

/// The holder: reads the indexes of interfaces from standard input until it ends, and then takes
/// these down. Returns its exit code.
int holdCarrier();

} // namespace OvixAgent
