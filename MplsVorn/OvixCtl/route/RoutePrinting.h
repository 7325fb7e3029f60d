#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Lumo/IntfId.h"
#include "Published/InterfaceNames.h"
#include "tables/TableView.h"

namespace OvixCtl {

/// The names of interfaces by their ids.
class IntfText {
  public:
    IntfText() = default;
    /// Names of several table sets; the first that knows an id names it.
    explicit IntfText(std::vector<Interface::Names> names) : names_(std::move(names)) {}

    /// The interface's name; "vlan100" or "cpu0" for an id that has a number; any other id without
    /// a name in hexadecimal; "" for no interface.
    std::string text(Lumo::IntfId intf) const;
    /// What names the interface in a line that is parsed again: its name if that is one word, else
    /// the id in hexadecimal.
    std::string word(Lumo::IntfId intf) const;

  private:
    std::string_view name(Lumo::IntfId intf) const noexcept;

    std::vector<Interface::Names> names_;
};

/// An entry on one line, after `ip -f mpls route`: "transit 100 as to 200/300 via inet 10.0.2.2 dev
/// east", with `nexthop` before each of several vias. No `as` means pop. parseEntry() takes the
/// line unless the entry is damaged.
std::string routeText(const Entry& entry, const IntfText& interfaces);

} // namespace OvixCtl
