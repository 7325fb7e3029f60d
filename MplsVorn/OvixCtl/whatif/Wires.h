#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Published/Pseudowires.h"
#include "whatif/Ways.h"

namespace OvixCtl {

/// The pseudowires of a router: where the frames of their circuits go, and who brings frames to
/// these.
class Wires {
  public:
    /// One of the agent's configuration, whose next hop and labels do not depend on any route.
    struct Configured {
        std::string name;
        Lumo::IntfId circuit;
        L3::Route tunnel; ///< of one via
    };
    struct Wire {
        std::string name;
        Lumo::IntfId circuit;
        std::optional<L3::Route> tunnel;         ///< of one of the configuration
        std::optional<L2::Pseudowire> published; ///< by a control plane; it is up
    };

    Wires() = default;
    /// Those that are published for circuits which none of the configuration has, too. A damaged
    /// list is an empty one.
    Wires(const Tessel::TableReader& tables, const std::vector<Configured>& configured);

    const std::vector<Wire>& all() const noexcept { return wires_; }

    /// A route that leads to other ends, if it is the longest for them. Of two for the same prefix
    /// the one taken first counts.
    void take(const L3::Route& route);

    /// To the other end; nowhere while the circuit's link is down.
    Way toOtherEnd(const Wire& wire, const Ways& ways) const;
    /// Whether assumptions can change that.
    bool concerns(const Wire& wire, const Ways& ways) const;

  private:
    struct Before {
        bool operator()(const Lumo::IpGenAddr& a, const Lumo::IpGenAddr& b) const noexcept {
            return a.family() != b.family() ? a.family() < b.family() : a.bytes() < b.bytes();
        }
    };

    const L3::Route* routeOf(const Wire& wire) const;

    std::vector<Wire> wires_;
    std::map<Lumo::IpGenAddr, std::optional<L3::Route>, Before> routes_; ///< by other end
};

} // namespace OvixCtl
