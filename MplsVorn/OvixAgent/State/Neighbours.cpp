#include "State/Neighbours.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <utility>

#include "Tessel/Changes.h"

namespace OvixAgent {

Neighbours::Neighbours(const AgentConfig& config) : links_(config.ports.size()) {
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

void Neighbours::countDevices(PortIndex port) {
    ++changes_;
    Tessel::Changes::notice();
    assert(port < links_.size());
    Link& link = links_[port] = {};
    for (const auto& [key, device] : neighbours_) {
        if (key.port != port) {
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

void Neighbours::want(const Lumo::IpGenAddr& address, PortIndex port) const noexcept {
    assert(port < links_.size());
    const Wanted wanted{address, port};
    const auto end = wanted_.begin() + wantedCount_;
    if (wantedCount_ < wanted_.size() && std::find(wanted_.begin(), end, wanted) == end) {
        wanted_[wantedCount_++] = wanted;
    }
}

std::span<const Neighbours::Wanted> Neighbours::takeWanted() noexcept {
    return std::span(wanted_).first(std::exchange(wantedCount_, 0));
}

void Neighbours::fail(const Lumo::IpGenAddr& address, PortIndex port) {
    failed_.push_back({address, port});
}

bool Neighbours::hasFailed(const Lumo::IpGenAddr& address, PortIndex port) const noexcept {
    return std::find(failed_.begin(), failed_.end(), Wanted{address, port}) != failed_.end();
}

std::size_t Neighbours::Hash::operator()(const Wanted& key) const noexcept {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    std::memcpy(&high, key.address.bytes().data(), sizeof high);
    std::memcpy(&low, key.address.bytes().data() + sizeof high, sizeof low);
    return ((high * 0x9e3779b97f4a7c15 + low) * 0xff51afd7ed558ccd) * 31 + key.port;
}

} // namespace OvixAgent
