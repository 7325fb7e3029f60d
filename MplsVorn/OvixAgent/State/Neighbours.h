#pragma once

#include <array>
#include <span>
#include <unordered_map>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IpGenAddr.h"

namespace OvixAgent {

/// The MAC addresses of the neighbours, by address and port.
class Neighbours {
  public:
    explicit Neighbours(const AgentConfig& config);

    /// Replaces the neighbours of the configuration; those learned stay. The ports must be the
    /// same.
    void configure(const AgentConfig& config);

    /// Null when the port has no neighbour of that address.
    const Lumo::EthAddr* find(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// The same, of the configuration; valid until the next configure().
    const Lumo::EthAddr* findConfigured(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// A neighbour found on the link, or that has moved. Those of the configuration do not change.
    void learn(const Lumo::IpGenAddr& address, PortIndex port, const Lumo::EthAddr& mac);
    void forget(const Lumo::IpGenAddr& address, PortIndex port);

    /// Whether unknown neighbours are solicited, as on live ports, so that packets may wait for
    /// them.
    bool solicits() const noexcept { return solicits_; }
    void solicitsIs(bool value) noexcept { solicits_ = value; }

    /// Has a neighbour solicited.
    void want(const Lumo::IpGenAddr& address, PortIndex port) const noexcept;
    struct Wanted {
        Lumo::IpGenAddr address;
        PortIndex port = 0;
        bool operator==(const Wanted&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Wanted& key) const noexcept;
    };
    /// The neighbours wanted since the last call, each once, at most 32. Valid until the next
    /// want().
    std::span<const Wanted> takeWanted() noexcept;

    /// A neighbour does not answer; remembered until clearFailed().
    void fail(const Lumo::IpGenAddr& address, PortIndex port);
    bool hasFailed(const Lumo::IpGenAddr& address, PortIndex port) const noexcept;
    void clearFailed() noexcept { failed_.clear(); }

    /// Changes with every change of a neighbour's MAC address.
    std::uint64_t changes() const noexcept { return changes_; }

    /// The only device on the port's link, by MAC address; null when there is none, or several.
    const Lumo::EthAddr* only(PortIndex port) const noexcept {
        return links_[port].devices == 1 ? &links_[port].first : nullptr;
    }

  private:
    struct Link {
        Lumo::EthAddr first{};
        std::size_t devices = 0; ///< at least this many
    };
    using Key = Wanted;
    struct Device {
        Lumo::EthAddr mac;
        bool isConfigured = false;
    };

    void countDevices(PortIndex port);

    std::unordered_map<Key, Device, Hash> neighbours_;
    std::vector<Link> links_; ///< by port
    mutable std::array<Wanted, 32> wanted_;
    mutable std::size_t wantedCount_ = 0;
    std::vector<Wanted> failed_;
    bool solicits_ = false;
    std::uint64_t changes_ = 0;
};

} // namespace OvixAgent
