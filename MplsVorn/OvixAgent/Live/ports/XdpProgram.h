#pragma once

#include <cstdint>
#include <memory>

#include "Config/Config.h"
#include "Live/ports/PacketIntake.h"

struct bpf_link;
struct bpf_object;

namespace OvixAgent {

/// The program that an interface runs on received frames: labelled frames to `station` or a group
/// address, behind at most three VLAN tags, go to the socket of the queue that they came by, as do
/// those of attachment circuits; all others, and those of a queue without a socket, go to the
/// host's network stack. The program is removed with this object and when the process ends.
class XdpProgram {
  public:
    /// Throws std::system_error, whose text names the step that failed: the kernel or the driver
    /// does not support it, or the interface has another program.
    XdpProgram(unsigned int interfaceIndex, const Lumo::EthAddr& station, std::uint32_t queues,
               PacketIntake intake);

    std::uint32_t queues() const noexcept { return queues_; }
    /// Until it is closed. By any thread. Throws std::system_error.
    void socketIs(std::uint32_t queue, int socket) const;

    /// Throws std::system_error.
    void intakeIs(PacketIntake intake);
    /// Removes the program from the interface.
    void detach() noexcept { link_.reset(); }

  private:
    struct Closer {
        void operator()(bpf_object* object) const noexcept;
        void operator()(bpf_link* link) const noexcept;
    };

    std::uint32_t queues_;
    int sockets_ = -1; ///< the map of them, which belongs to the object
    std::unique_ptr<bpf_object, Closer> object_;
    std::unique_ptr<bpf_link, Closer> link_;
};

} // namespace OvixAgent
