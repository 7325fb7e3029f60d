#include "kernel/InterfaceLookup.h"

#include "kernel/KernelLinks.h"

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
    const auto link = linkOfIndex(index);
    return link ? std::optional(HostInterface{link->name, link->vrfTable != 0}) : std::nullopt;
}

std::map<std::uint32_t, std::string> InterfaceLookup::askForVrfs() const {
    return vrfNamesByTable();
}

} // namespace OvixFpm
