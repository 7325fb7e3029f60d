#pragma once

#include "Tessel/Entity.h"

namespace Mpls {

/// Whether the device routes MPLS.
class RoutingInfo : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::RoutingInfo";
    enum Attr : Tessel::AttrId { mplsRoutingEnabledAttr = 0 };

    RoutingInfo() : Entity("routingInfo") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    bool mplsRoutingEnabled() const noexcept { return mplsRoutingEnabled_; }
    void mplsRoutingEnabledIs(bool on) {
        assignAndPublish(mplsRoutingEnabled_, on, mplsRoutingEnabledAttr);
    }

  private:
    bool mplsRoutingEnabled_ = false;
};

} // namespace Mpls
