#pragma once

#include <cstdint>
#include <memory>

#include "Config/Config.h"
#include "Live/ports/PacketIntake.h"

struct bpf_link;
struct bpf_object;

namespace OvixAgent {

/// The program that an interface runs on received frames: labelled frames to `station` or a group
/// address, behind at most three VLAN tags, go to a socket, as do those of attachment circuits; all
/// others go to the host's network stack. The program is removed with this object and when the
/// process ends.
class XdpProgram {
  public:
    /// Throws std::system_error, whose text names the step that failed: the kernel or the driver
    /// does not support it, or the interface has another program.
    XdpProgram(unsigned int interfaceIndex, const Lumo::EthAddr& station, int socket,
               PacketIntake intake);

    /// Throws std::system_error.
    void intakeIs(PacketIntake intake);

  private:
    struct Closer {
        void operator()(bpf_object* object) const noexcept;
        void operator()(bpf_link* link) const noexcept;
    };

    std::unique_ptr<bpf_object, Closer> object_;
    std::unique_ptr<bpf_link, Closer> link_;
};

} // namespace OvixAgent
