#include "Neighbours.h"

#include <cstring>

namespace OvixAgent {

Lumo::IpGenAddr toIpGenAddr(const IpAddress& address) noexcept {
    return address.family == IpAddress::Family::ipv4 ? Lumo::IpGenAddr::ipv4(address.bytes.data())
                                                     : Lumo::IpGenAddr::ipv6(address.bytes.data());
}

Neighbours::Neighbours(const AgentConfig& config) : links_(config.ports.size()) {
    for (const NeighbourConfig& neighbour : config.neighbours) {
        const Lumo::IpGenAddr address = toIpGenAddr(neighbour.address);
        neighbours_.insert_or_assign({address, neighbour.port}, neighbour.mac);
        Link& link = links_[neighbour.port];
        if (link.devices == 0) {
            link = {neighbour.mac, 1};
        } else if (link.first != neighbour.mac) {
            ++link.devices;
        }
    }
}

const Lumo::EthAddr* Neighbours::find(const Lumo::IpGenAddr& address, PortIndex port) const {
    const auto found = neighbours_.find({address, port});
    return found != neighbours_.end() ? &found->second : nullptr;
}

std::size_t Neighbours::Hash::operator()(const Key& key) const noexcept {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, key.address.bytes().data(), sizeof high);
    std::memcpy(&low, key.address.bytes().data() + sizeof high, sizeof low);
    return ((high * 0x9e3779b97f4a7c15 + low) * 0xff51afd7ed558ccd) * 31 + key.port;
}

} // namespace OvixAgent
