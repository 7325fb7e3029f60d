#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct nlmsghdr;

namespace OvixFpm {

/// A VRF device of the kernel: a routing table that has a name.
struct VrfDevice {
    std::uint32_t table = 0;
    std::string name;

    friend bool operator==(const VrfDevice&, const VrfDevice&) = default;
};

/// The names of this host's VRFs by their tables, as rtnetlink tells them. Throws
/// std::system_error.
std::map<std::uint32_t, std::string> vrfNamesByTable();

/// None when the message, which must be as long as it says, is not about a VRF device.
std::optional<VrfDevice> readVrfDevice(const nlmsghdr& message);

} // namespace OvixFpm
