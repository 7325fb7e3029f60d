#include "route/IntfText.h"

#include <fmt/format.h>

namespace OvixCtl {

std::string IntfText::text(Lumo::IntfId intf) const {
    if (intf.empty()) {
        return {};
    }
    for (const Interface::Names& names : names_) {
        if (const std::string_view name = names.name(intf); !name.empty()) {
            return std::string(name);
        }
    }
    switch (intf.kind()) {
    case Lumo::IntfId::Kind::vlan:
        return fmt::format("vlan{}", intf.id());
    case Lumo::IntfId::Kind::cpu:
        return fmt::format("cpu{}", intf.id());
    default:
        return fmt::format("{:#018x}", intf.value());
    }
}

} // namespace OvixCtl
