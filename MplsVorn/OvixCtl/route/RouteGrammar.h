#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Mpls/LabelRoute.h"
#include "Tessel/Result.h"

namespace OvixCtl {

/// A route of an LFIB as words give it, and the interfaces that it names.
struct ParsedRoute {
    Mpls::LabelRoute route;
    std::vector<std::string> interfaces;
};

/// Parses a route as routeText() prints it, and as `ovixctl lfib add --help` describes it. Refuses
/// other words, naming them.
Tessel::Result<ParsedRoute> parseRoute(const std::vector<std::string>& words);

/// The table and the label of a route.
struct RouteName {
    Mpls::TableId table = Mpls::TableId::transitLfib;
    Lumo::MplsLabel label;
};
/// [TABLE] LABEL [table TABLE]
Tessel::Result<RouteName> parseRouteName(const std::vector<std::string>& words);

/// The words that a route may have behind its label.
std::vector<std::string_view> routeWords();

} // namespace OvixCtl
