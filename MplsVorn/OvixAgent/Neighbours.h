#pragma once

#include <unordered_map>
#include <vector>

#include "ConfigTypes.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

Lumo::IpGenAddr toIpGenAddr(const IpAddress& address) noexcept;

/// The MAC addresses of the neighbours, by address and port.
class Neighbours {
  public:
    explicit Neighbours(const AgentConfig& config);

    /// Null when the port has no neighbour of that address.
    const Lumo::EthAddr* find(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// The one device on the port's link; null when there is none or several, by their MAC
    /// addresses.
    const Lumo::EthAddr* only(PortIndex port) const noexcept {
        return links_[port].devices == 1 ? &links_[port].first : nullptr;
    }

  private:
    struct Link {
        Lumo::EthAddr first{};
        std::size_t devices = 0; ///< at least this many
    };
    struct Key {
        Lumo::IpGenAddr address;
        PortIndex port = 0;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Key& key) const noexcept;
    };

    std::unordered_map<Key, Lumo::EthAddr, Hash> neighbours_;
    std::vector<Link> links_; ///< by port
};

} // namespace OvixAgent
