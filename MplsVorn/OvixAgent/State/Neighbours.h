#pragma once

#include <array>
#include <unordered_map>
#include <vector>

#include "Config/ConfigTypes.h"
#include "Lumo/EthAddr.h"
#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

Lumo::IpGenAddr toIpGenAddr(const IpAddress& address) noexcept;

/// The MAC addresses of the neighbours, by address and port.
class Neighbours {
  public:
    explicit Neighbours(const AgentConfig& config);

    /// Puts another configuration's neighbours in the place of those there were; what was learnt
    /// stays. The ports must be the same.
    void configure(const AgentConfig& config);

    /// Null when the port has no neighbour of that address.
    const Lumo::EthAddr* find(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// The same, of the configuration; good until there is another one.
    const Lumo::EthAddr* findConfigured(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// A neighbour found on the link, or that has moved. One of the configuration stays as it says.
    void learn(const Lumo::IpGenAddr& address, PortIndex port, const Lumo::EthAddr& mac);
    void forget(const Lumo::IpGenAddr& address, PortIndex port);

    /// Remembers that a frame had to be dropped for want of the neighbour.
    void want(const Lumo::IpGenAddr& address, PortIndex port) const noexcept;
    struct Wanted {
        Lumo::IpGenAddr address;
        PortIndex port = 0;
        bool operator==(const Wanted&) const = default;
    };
    /// Who has been wanted since the last call, each once; those beyond the first few wait for
    /// another frame.
    std::vector<Wanted> takeWanted();

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
    using Key = Wanted;
    struct Hash {
        std::size_t operator()(const Key& key) const noexcept;
    };
    struct Device {
        Lumo::EthAddr mac;
        bool isConfigured = false;
    };

    void countDevices(PortIndex port);

    std::unordered_map<Key, Device, Hash> neighbours_;
    std::vector<Link> links_; ///< by port
    mutable std::array<Wanted, 32> wanted_;
    mutable std::size_t wantedCount_ = 0;
};

} // namespace OvixAgent
