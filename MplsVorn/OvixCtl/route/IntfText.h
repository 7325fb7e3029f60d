#pragma once

#include <string>
#include <vector>

#include "Lumo/IntfId.h"
#include "Published/InterfaceNames.h"

namespace OvixCtl {

/// Interface ids as people know them.
class IntfText {
  public:
    IntfText() = default;
    /// Names of several table sets; the first that knows an id names it.
    explicit IntfText(std::vector<Interface::Names> names) : names_(std::move(names)) {}

    /// The interface's name; "vlan100", "cpu0" for what has a number; an id that nobody has named
    /// in hexadecimal; "" for none.
    std::string text(Lumo::IntfId intf) const;

  private:
    std::vector<Interface::Names> names_;
};

} // namespace OvixCtl
