#pragma once

#include <map>
#include <string>
#include <utility>

#include "Live/links/LinkTable.h"

namespace LiveTesting {

/// The links and neighbours as the events reported so far leave them.
class SeenLinks {
  public:
    OvixAgent::LinkEvents events() {
        OvixAgent::LinkEvents all;
        all.linkIs = [this](const OvixAgent::LinkState& link) { links_[link.index] = link; };
        all.linkDel = [this](const OvixAgent::LinkState& link) { links_.erase(link.index); };
        all.neighbourIs = [this](const OvixAgent::NeighbourState& neighbour) {
            neighbours_[keyOf(neighbour.link, neighbour.address)] = neighbour;
        };
        all.neighbourDel = [this](const OvixAgent::NeighbourState& neighbour) {
            neighbours_.erase(keyOf(neighbour.link, neighbour.address));
        };
        return all;
    }

    /// Null when there is none.
    const OvixAgent::LinkState* link(const std::string& name) const {
        for (const auto& [index, link] : links_) {
            if (link.name == name) {
                return &link;
            }
        }
        return nullptr;
    }
    const OvixAgent::LinkState* link(std::uint32_t index) const {
        const auto found = links_.find(index);
        return found != links_.end() ? &found->second : nullptr;
    }
    const OvixAgent::NeighbourState* neighbour(std::uint32_t link,
                                               const Lumo::IpGenAddr& address) const {
        const auto found = neighbours_.find(keyOf(link, address));
        return found != neighbours_.end() ? &found->second : nullptr;
    }

  private:
    using Key = std::pair<std::uint32_t, std::string>;
    static Key keyOf(std::uint32_t link, const Lumo::IpGenAddr& address) {
        return {link, address.text()};
    }

    std::map<std::uint32_t, OvixAgent::LinkState> links_;
    std::map<Key, OvixAgent::NeighbourState> neighbours_;
};

} // namespace LiveTesting
