#pragma once

#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "ConfigTypes.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

Lumo::IpGenAddr toIpGenAddr(const IpAddress& address) noexcept;

/// Who is reached where: the neighbours by address, and the agent's own addresses.
class Neighbours {
  public:
    struct Neighbour {
        PortIndex port = 0;
        Lumo::EthAddr mac{};
    };

    explicit Neighbours(const AgentConfig& config);

    /// The neighbour of that address on the port, or, without a port, on any; null when unknown.
    const Neighbour* find(const Lumo::IpGenAddr& address, std::optional<PortIndex> port) const;

    /// Whether the address is one of a port's own.
    bool isLocal(const Lumo::IpGenAddr& address) const { return local_.contains(address); }

  private:
    struct Key {
        Lumo::IpGenAddr address;
        PortIndex port = 0;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Lumo::IpGenAddr& address) const noexcept;
        std::size_t operator()(const Key& key) const noexcept {
            return (*this)(key.address) * 31 + key.port;
        }
    };
    static constexpr PortIndex anyPort = ~PortIndex{0};

    std::unordered_map<Key, Neighbour, Hash> neighbours_;
    std::unordered_set<Lumo::IpGenAddr, Hash> local_;
};

} // namespace OvixAgent
