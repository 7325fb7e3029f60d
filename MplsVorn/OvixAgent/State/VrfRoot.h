#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Config/Config.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/Fib.h"
#include "State/Neighbours.h"
#include "Tessel/FlatMap.h"

namespace OvixAgent {

/// The VRFs and their routes: of the ports' addresses and subnets, of the configuration, and of the
/// neighbours that neither covers. The default VRF is always there, others when a port or a route
/// names them.
class VrfRoot : public Ovix::RoutingVrfRoot {
  public:
    /// The neighbours must outlive it.
    VrfRoot(const AgentConfig& config, const PortTable& ports, const Neighbours& neighbours);

    /// The routes of a VRF, the default VRF's for the empty name; null when there is no such VRF.
    const Fib* fib(std::string_view vrf) const noexcept;

    /// A VRF's number, for as long as the root lives; unset when there is no such VRF.
    std::optional<std::uint32_t> number(std::string_view vrf) const noexcept;
    const Fib& fibAt(std::uint32_t number) const noexcept {
        assert(number < fibs_.size());
        return fibs_[number];
    }
    Fib& fibAt(std::uint32_t number) noexcept {
        assert(number < fibs_.size());
        return fibs_[number];
    }
    /// The name of the VRF of that number.
    const std::string& nameAt(std::uint32_t number) const noexcept {
        assert(number < names_.size());
        return names_[number];
    }
    /// How many VRFs there are; they only become more.
    std::size_t size() const noexcept { return fibs_.size(); }

    /// The routes of a VRF, to be changed; there is such a VRF from now on.
    Fib& fibIs(std::string_view vrf);

    /// Those of the VRF that a port is in.
    const Fib& fibOfPort(PortIndex port) const noexcept {
        assert(port < fibOfPort_.size());
        return fibs_[fibOfPort_[port]];
    }

  private:
    std::uint32_t fibIndex(std::string_view vrf);

    std::vector<Fib> fibs_;                 ///< the default VRF's first
    std::vector<std::string> names_;        ///< likewise
    Tessel::FlatMap<std::uint32_t> byName_; ///< by the name's hash
    std::vector<std::uint32_t> fibOfPort_;
};

} // namespace OvixAgent
