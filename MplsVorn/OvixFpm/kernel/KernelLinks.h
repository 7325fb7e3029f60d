#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct nlmsghdr;

namespace OvixFpm {

/// A network interface of this host, as rtnetlink describes it.
struct KernelLink {
    std::string name;
    std::uint32_t vrfTable = 0; ///< of a VRF device: the routing table that it stands for; else 0

    friend bool operator==(const KernelLink&, const KernelLink&) = default;
};

/// None when there is no interface of that index. Throws std::system_error.
std::optional<KernelLink> linkOfIndex(std::uint32_t index);

/// The names of this host's VRF devices by their tables. Throws std::system_error.
std::map<std::uint32_t, std::string> vrfNamesByTable();

/// None when the message, which must be as long as it says, does not tell of an interface.
std::optional<KernelLink> readLink(const nlmsghdr& message);

} // namespace OvixFpm
