#pragma once

#include "Mpls/Hardware/Capability.h"
#include "Ovix/routing/RoutingCapabilities.h"

namespace Ovix {

/// Announces the plugin's MPLS features while the agent supports routing. What has been announced
/// stays announced when the support is withdrawn. Runs on the agent's main thread.
class MplsRoutingSupportedReactor : public Tessel::Reactor {
  public:
    /// Subscribes, and announces at once if routing is supported.
    MplsRoutingSupportedReactor(Ptr<Mpls::Hardware::Capability> capability,
                                Ptr<const RoutingCapabilities> routingCapabilities);

    static Ptr<MplsRoutingSupportedReactor>
    MplsRoutingSupportedReactorIs(const Ptr<Mpls::Hardware::Capability>& capability,
                                  const Ptr<const RoutingCapabilities>& routingCapabilities);

    const Ptr<Mpls::Hardware::Capability>& capability() const noexcept { return capability_; }
    const Ptr<const RoutingCapabilities>& routingCapabilities() const noexcept {
        return routingCapabilities_;
    }

    /// What a change of the attribute does.
    void routingCapabilitiesDispatch(Tessel::AttrId attribute) {
        attributeChanged(*routingCapabilities_, attribute, 0);
    }
    void handleRoutingSupported();

  protected:
    void react(std::uint64_t) override { handleRoutingSupported(); }

  private:
    Ptr<Mpls::Hardware::Capability> capability_;
    Ptr<const RoutingCapabilities> routingCapabilities_;
};

Ptr<MplsRoutingSupportedReactor>
mplsRoutingSupportedReactorFactory(const Ptr<Mpls::Hardware::Capability>& capability,
                                   const Ptr<const RoutingCapabilities>& routingCapabilities);

} // namespace Ovix
