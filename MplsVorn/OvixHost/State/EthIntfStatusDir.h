#pragma once

#include "Lumo/IntfId.h"
#include "Tessel/Entity.h"
#include "Tessel/FlatMap.h"

namespace Interface {

/// The operational status of the Ethernet interfaces.
class EthIntfStatusDir : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Interface::EthIntfStatusDir";
    enum Attr : Tessel::AttrId { intfStatusAttr = 0 };

    EthIntfStatusDir() : Entity("intf") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// Whether frames can leave by the interface; one that is not listed is down.
    bool operUp(Lumo::IntfId intf) const noexcept {
        const bool* up = status_.find(intf.value());
        return up != nullptr && *up;
    }
    /// Publishes a change under the interface's id.
    void intfStatusIs(Lumo::IntfId intf, bool up) {
        bool& held = status_[intf.value()];
        if (held != up) {
            held = up;
            publish(intfStatusAttr, intf.value());
        }
    }

  private:
    Tessel::FlatMap<bool> status_;
};

} // namespace Interface
