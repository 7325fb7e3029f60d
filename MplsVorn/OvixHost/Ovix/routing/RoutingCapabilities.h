#pragma once

#include "Tessel/Entity.h"

namespace Ovix {

/// What this forwarding agent is able to do; nothing until it says so.
class RoutingCapabilities : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "RoutingCapabilities";
    enum Attr : Tessel::AttrId { routingSupportedAttr = 0 };

    RoutingCapabilities() : Entity("routingCapabilities") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    bool routingSupported() const noexcept { return routingSupported_; }
    void routingSupportedIs(bool on) {
        assignAndPublish(routingSupported_, on, routingSupportedAttr);
    }

  private:
    bool routingSupported_ = false;
};

} // namespace Ovix
