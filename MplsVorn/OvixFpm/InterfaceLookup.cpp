#include "InterfaceLookup.h"

#include <array>
#include <fstream>
#include <net/if.h>

#include "VrfDevices.h"

namespace OvixFpm {

const std::optional<HostInterface>& InterfaceLookup::find(std::uint32_t index) {
    const auto known = known_.find(index);
    return known != known_.end() ? known->second : known_.emplace(index, ask(index)).first->second;
}

std::optional<std::string> InterfaceLookup::vrfOfTable(std::uint32_t table) {
    if (!vrfs_) {
        vrfs_ = askForVrfs();
    }
    const auto found = vrfs_->find(table);
    return found != vrfs_->end() ? std::optional(found->second) : std::nullopt;
}

std::optional<HostInterface> InterfaceLookup::ask(std::uint32_t index) const {
    std::array<char, IF_NAMESIZE> name{};
    if (if_indextoname(index, name.data()) == nullptr) {
        return std::nullopt;
    }
    HostInterface found{name.data(), false};
    std::ifstream events("/sys/class/net/" + found.name + "/uevent");
    for (std::string line; std::getline(events, line);) {
        found.isVrf = found.isVrf || line == "DEVTYPE=vrf";
    }
    return found;
}

std::map<std::uint32_t, std::string> InterfaceLookup::askForVrfs() const {
    return vrfNamesByTable();
}

} // namespace OvixFpm
