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

  private:
    std::vector<Interface::Names> names_;
};

/// An entry on one line, after `ip -f mpls route`: "transit 100 as to 200/300 via inet 10.0.2.2 dev
/// east", with `nexthop` before each of several vias. No `as` means pop. parseRoute() takes the
/// line of a label route.
std::string routeText(const Entry& entry, const IntfText& interfaces);

/// An entry as JSON on one line; `ovixctl lfib show --help` lists the keys. Bytes of a name that
/// are not UTF-8 are replaced.
std::string routeJson(const Entry& entry, const IntfText& interfaces);
/// {"table", KEY}: the table and the key of an entry.
std::string routeKeyJson(Mpls::TableId table, std::uint32_t key);
/// The text as a JSON string, likewise.
std::string jsonText(std::string_view text);

} // namespace OvixCtl
