#pragma once

#include <algorithm>
#include <cassert>
#include <unordered_map>
#include <vector>

#include "Config/Config.h"
#include "Lumo/IpGenAddr.h"
#include "State/Solicits.h"

namespace OvixAgent {

/// The MAC addresses of the neighbours, by address and port.
class Neighbours {
  public:
    using Hash = Solicits::Hash;

    explicit Neighbours(const AgentConfig& config);

    /// Replaces the neighbours of the configuration; those learned stay. The ports must be the
    /// same.
    void configure(const AgentConfig& config);

    /// The same, with those of `prepared`, which is left with those that were configured before.
    void configuredAre(Neighbours& prepared);

    /// Null when the port has no neighbour of that address.
    const Lumo::EthAddr* find(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// The same, of the configuration; valid until the next configure().
    const Lumo::EthAddr* findConfigured(const Lumo::IpGenAddr& address, PortIndex port) const;

    /// A neighbour found on the link, or that has moved. Those of the configuration do not change.
    void learn(const Lumo::IpGenAddr& address, PortIndex port, const Lumo::EthAddr& mac);
    void forget(const Lumo::IpGenAddr& address, PortIndex port);

    std::size_t size() const noexcept { return neighbours_.size(); }
    /// Visits them part by part: `visitor(address, port, mac, isConfigured)` for those of a part.
    /// Their number grows with the neighbours; then all are in other parts.
    std::size_t parts() const noexcept { return neighbours_.bucket_count(); }
    template <typename Visitor>
    void visitPart(std::size_t part, Visitor&& visitor) const {
        assert(part < parts());
        std::for_each(neighbours_.begin(part), neighbours_.end(part), [&](const auto& entry) {
            visitor(entry.first.address, entry.first.port, entry.second.mac,
                    entry.second.isConfigured);
        });
    }

    /// Whether unknown neighbours are solicited, as on live ports, so that packets may wait for
    /// them.
    bool solicits() const noexcept { return solicits_; }
    void solicitsIs(bool value) noexcept { solicits_ = value; }

    /// Which unknown neighbours are solicited.
    Solicits& wanted() noexcept { return wanted_; }

    /// A neighbour does not answer; hasFailed() says so until clearFailed().
    void fail(const Lumo::IpGenAddr& address, PortIndex port);
    bool hasFailed(const Lumo::IpGenAddr& address, PortIndex port) const noexcept;
    void clearFailed() noexcept { failed_.clear(); }

    /// Changes with every change of a neighbour's MAC address.
    std::uint64_t changes() const noexcept { return changes_; }

    /// The only device on the port's link, by MAC address, groups aside; null when there is none,
    /// or several.
    const Lumo::EthAddr* only(PortIndex port) const noexcept {
        return links_[port].devices == 1 ? &links_[port].first : nullptr;
    }

  private:
    struct Link {
        Lumo::EthAddr first{};
        std::size_t devices = 0; ///< at least this many
    };
    using Key = Solicits::Neighbour;
    struct Device {
        Lumo::EthAddr mac;
        bool isConfigured = false;
    };

    void countDevices(PortIndex port);

    std::unordered_map<Key, Device, Hash> neighbours_;
    std::vector<Link> links_; ///< by port
    Solicits wanted_;
    std::vector<Key> failed_;
    bool solicits_ = false;
    std::uint64_t changes_ = 0;
};

} // namespace OvixAgent
