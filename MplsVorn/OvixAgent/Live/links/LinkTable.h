#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <tuple>

#include "Live/links/LinkMessages.h"

namespace OvixAgent {

/// Called for changes. Unset functions do nothing.
struct LinkEvents {
    std::function<void(const LinkState&)> linkIs = [](const LinkState&) {};
    std::function<void(const LinkState&)> linkDel = [](const LinkState&) {};
    std::function<void(const NeighbourState&)> neighbourIs = [](const NeighbourState&) {};
    std::function<void(const NeighbourState&)> neighbourDel = [](const NeighbourState&) {};
};

/// The links and neighbours that the kernel has reported. Equal values are published once.
class LinkTable {
  public:
    explicit LinkTable(LinkEvents events) : events_(std::move(events)) {}

    void linkIs(const LinkState& link);
    void linkDel(std::uint32_t index);
    /// A link that is known is down, whatever else it is.
    void carrierDel(std::uint32_t index);
    void neighbourIs(const NeighbourState& neighbour);
    void neighbourDel(const NeighbourState& neighbour);

    /// Null when no link has the index, or the name. Valid until the next change.
    const LinkState* link(std::uint32_t index) const noexcept;
    const LinkState* linkNamed(const std::string& name) const noexcept;

    /// Values reported from now on are confirmed.
    void startConfirming() noexcept { ++round_; }
    /// Deletes all others.
    void delUnconfirmed();

  private:
    template <typename T>
    struct Known {
        T value;
        std::uint64_t round = 0;
    };
    using NeighbourKey = std::tuple<std::uint32_t, Lumo::IpFamily, std::array<std::uint8_t, 16>>;

    static NeighbourKey keyOf(std::uint32_t link, const Lumo::IpGenAddr& address) {
        return {link, address.family(), address.bytes()};
    }
    template <typename Map, typename Event>
    void delUnconfirmed(Map& known, const Event& event);
    template <typename Map, typename Value, typename Event>
    void is(Map& known, const typename Map::key_type& key, const Value& value, const Event& event);
    template <typename Map, typename Event>
    static void del(Map& known, const typename Map::key_type& key, const Event& event);

    LinkEvents events_;
    std::map<std::uint32_t, Known<LinkState>> links_;
    std::map<NeighbourKey, Known<NeighbourState>> neighbours_;
    std::uint64_t round_ = 0;
};

} // namespace OvixAgent
