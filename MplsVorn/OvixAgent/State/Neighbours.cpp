#include "State/Neighbours.h"

#include <algorithm>
#include <cassert>
#include <iterator>

#include "Tessel/Changes.h"

namespace OvixAgent {

Neighbours::Neighbours(const AgentConfig& config)
    : links_(config.ports.size()), wanted_(config.ports.size()) {
    configure(config);
}

void Neighbours::configure(const AgentConfig& config) {
    std::erase_if(neighbours_, [](const auto& entry) { return entry.second.isConfigured; });
    for (const NeighbourConfig& neighbour : config.neighbours) {
        neighbours_.insert_or_assign({neighbour.address, neighbour.port},
                                     Device{neighbour.mac, true});
    }
    for (PortIndex port = 0; port < links_.size(); ++port) {
        countDevices(port);
    }
}

// Entries change hands and do not move: routes point to the MAC addresses of configured ones.
void Neighbours::configuredAre(Neighbours& prepared) {
    std::unordered_map<Key, Device, Hash> before;
    before.swap(neighbours_);
    neighbours_.swap(prepared.neighbours_);
    for (auto entry = before.begin(); entry != before.end();) {
        const auto following = std::next(entry);
        if (!entry->second.isConfigured) {
            neighbours_.insert(before.extract(entry));
        }
        entry = following;
    }
    prepared.neighbours_.swap(before);
    for (PortIndex port = 0; port < links_.size(); ++port) {
        countDevices(port);
    }
}

void Neighbours::countDevices(PortIndex port) {
    ++changes_;
    Tessel::Changes::notice();
    assert(port < links_.size());
    Link& link = links_[port] = {};
    for (const auto& [key, device] : neighbours_) {
        // The kernel has entries for the groups that the host itself sends to, too.
        const bool isGroup = (device.mac[0] & 1U) != 0;
        if (key.port != port || isGroup) {
            continue;
        }
        if (link.devices == 0) {
            link = {device.mac, 1};
        } else if (link.first != device.mac) {
            ++link.devices;
        }
    }
}

const Lumo::EthAddr* Neighbours::find(const Lumo::IpGenAddr& address, PortIndex port) const {
    const auto found = neighbours_.find({address, port});
    return found != neighbours_.end() ? &found->second.mac : nullptr;
}

const Lumo::EthAddr* Neighbours::findConfigured(const Lumo::IpGenAddr& address,
                                                PortIndex port) const {
    const auto found = neighbours_.find({address, port});
    return found != neighbours_.end() && found->second.isConfigured ? &found->second.mac : nullptr;
}

void Neighbours::learn(const Lumo::IpGenAddr& address, PortIndex port, const Lumo::EthAddr& mac) {
    wanted_.isKnown({address, port});
    Device& device = neighbours_[{address, port}];
    if (!device.isConfigured && device.mac != mac) {
        device.mac = mac;
        countDevices(port);
    }
}

void Neighbours::forget(const Lumo::IpGenAddr& address, PortIndex port) {
    const auto found = neighbours_.find({address, port});
    if (found != neighbours_.end() && !found->second.isConfigured) {
        neighbours_.erase(found);
        countDevices(port);
    }
}

void Neighbours::fail(const Lumo::IpGenAddr& address, PortIndex port) {
    failed_.push_back({address, port});
    wanted_.hasFailed({address, port});
}

bool Neighbours::hasFailed(const Lumo::IpGenAddr& address, PortIndex port) const noexcept {
    return std::find(failed_.begin(), failed_.end(), Key{address, port}) != failed_.end();
}

} // namespace OvixAgent
