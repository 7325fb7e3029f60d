#pragma once

#include "Mpls/Hardware/Capability.h"
#include "Ovix/routing/RoutingCapabilities.h"

namespace Ovix {

/// Announces the plugin's MPLS features while the agent supports routing. What has been announced
/// stays announced when the support is withdrawn. Runs on the agent's main thread.
class MplsRoutingSupportedReactor : public Tessel::Counted, public Tessel::Subscriber {
  public:
    /// Subscribes, and announces at once if routing is supported.
    MplsRoutingSupportedReactor(Ptr<Mpls::Hardware::Capability> capability,
                                Ptr<const RoutingCapabilities> routingCapabilities);
    ~MplsRoutingSupportedReactor() override;

    static Ptr<MplsRoutingSupportedReactor>
    MplsRoutingSupportedReactorIs(const Ptr<Mpls::Hardware::Capability>& capability,
                                  const Ptr<const RoutingCapabilities>& routingCapabilities);

    const Ptr<Mpls::Hardware::Capability>& capability() const noexcept { return capability_; }
    const Ptr<const RoutingCapabilities>& routingCapabilities() const noexcept {
        return routingCapabilities_;
    }

    void hasNotificationActiveIs(bool active);
    bool hasNotificationActive() const noexcept { return active_; }

    /// While the owner is being torn down nothing is reacted to.
    void zelDoZombieReactors(bool zombie) noexcept { zombie_ = zombie; }

    void attributeChanged(const Tessel::Entity& publisher, Tessel::AttrId attribute,
                          std::uint64_t key) override;
    void routingCapabilitiesDispatch(Tessel::AttrId attribute);
    void handleRoutingSupported();

  private:
    Ptr<Mpls::Hardware::Capability> capability_;
    Ptr<const RoutingCapabilities> routingCapabilities_;
    bool active_ = false;
    bool zombie_ = false;
};

Ptr<MplsRoutingSupportedReactor>
mplsRoutingSupportedReactorFactory(const Ptr<Mpls::Hardware::Capability>& capability,
                                   const Ptr<const RoutingCapabilities>& routingCapabilities);

} // namespace Ovix
