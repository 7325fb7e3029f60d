#include "Neighbours.h"

#include <cstring>

namespace OvixAgent {

Lumo::IpGenAddr toIpGenAddr(const IpAddress& address) noexcept {
    return address.family == IpAddress::Family::ipv4 ? Lumo::IpGenAddr::ipv4(address.bytes.data())
                                                     : Lumo::IpGenAddr::ipv6(address.bytes.data());
}

Neighbours::Neighbours(const AgentConfig& config) {
    for (const NeighbourConfig& neighbour : config.neighbours) {
        const Lumo::IpGenAddr address = toIpGenAddr(neighbour.address);
        const Neighbour entry{neighbour.port, neighbour.mac};
        neighbours_.insert_or_assign({address, neighbour.port}, entry);
        neighbours_.insert({{address, anyPort}, entry}); // the first one listed
    }
    for (const PortConfig& port : config.ports) {
        for (const IpInterfaceAddress& own : port.addresses) {
            local_.insert(toIpGenAddr(own.address));
        }
    }
}

const Neighbours::Neighbour* Neighbours::find(const Lumo::IpGenAddr& address,
                                              std::optional<PortIndex> port) const {
    const auto found = neighbours_.find({address, port.value_or(anyPort)});
    return found != neighbours_.end() ? &found->second : nullptr;
}

std::size_t Neighbours::Hash::operator()(const Lumo::IpGenAddr& address) const noexcept {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, address.bytes().data(), sizeof high);
    std::memcpy(&low, address.bytes().data() + sizeof high, sizeof low);
    return (high * 0x9e3779b97f4a7c15 + low) * 0xff51afd7ed558ccd;
}

} // namespace OvixAgent
