#pragma once

#include <cstdint>
#include <memory>

#include "Config/ConfigTypes.h"

struct bpf_link;
struct bpf_object;

namespace OvixAgent {

/// The program that an interface runs on what it receives: labelled frames for `station` and group
/// addresses, behind up to two 802.1Q or 802.1ad tags, go to a socket; the rest goes on to the
/// host's own network stack. It goes with this object, and with the process, however that ends.
class XdpProgram {
  public:
    /// Throws std::system_error, whose text says which step failed: the kernel or the interface's
    /// driver does not allow for it, or another program is there already.
    XdpProgram(unsigned int interfaceIndex, const MacAddress& station, int socket);

  private:
    struct Closer {
        void operator()(bpf_object* object) const noexcept;
        void operator()(bpf_link* link) const noexcept;
    };

    std::unique_ptr<bpf_object, Closer> object_;
    std::unique_ptr<bpf_link, Closer> link_;
};

} // namespace OvixAgent
