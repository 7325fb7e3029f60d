#include "route/RouteRows.h"

#include <fmt/format.h>

#include "route/EntryTable.h"
#include "route/ViaWords.h"

namespace OvixCtl {

namespace {

using Flags = std::vector<std::string>;

/// The cells of one line behind the table's name and the key.
struct Row {
    std::string type;
    std::string action;
    std::string labels;
    std::string nexthop;
    std::string intf;
    std::string weight;
    Flags flags;
};

class Writer {
  public:
    explicit Writer(const IntfText& interfaces) : interfaces_(&interfaces) {}

    const std::vector<Row>& rows() const noexcept { return rows_; }

    void operator()(const LfibRouteView& route) {
        const std::string type = wordOf(route.type);
        Flags common;
        if (route.setType == Mpls::LfibViaSetType::multicast) {
            common.emplace_back("multicast");
        }
        if (route.origin != 0) {
            common.push_back(fmt::format("origin={}", route.origin));
        }
        if (route.flags != 0) {
            common.push_back(fmt::format("flags={:#04x}", route.flags));
        }
        if (route.lookup) {
            Row& row = add(type, common);
            row.action = wordOf(Lumo::MplsLabelAction::pop);
            row.flags.push_back(fmt::format("vrf={}", route.lookup->vrf.view()));
            row.flags.push_back(fmt::format("payload={}", wordOf(route.lookup->payload)));
        }
        if (route.tail) {
            Row& row = add(type, common);
            row.intf = interfaces_->text(intfOf(*route.tail));
            row.flags.emplace_back("tail");
        }
        for (const Mpls::WeightedVia& via : route.vias) {
            add(type, common, via);
        }
        if (rows_.empty()) {
            add(type, common);
        }
    }
    void operator()(const HardwareRouteView& route) {
        Row& row = add({}, {});
        row.nexthop = fmt::format("adjacency {}", route.adjacency);
        if (route.unprogrammed) {
            row.flags.emplace_back("unprogrammed");
        }
    }
    void operator()(const AdjacencyView& adjacency) {
        const std::string type = wordOf(adjacency.type);
        Flags common;
        if (adjacency.setType == Mpls::LfibViaSetType::multicast) {
            common.emplace_back("multicast");
        }
        if (adjacency.useBackups) {
            common.emplace_back("use-backups");
        }
        for (const Mpls::WeightedVia& via : adjacency.vias) {
            add(type, common, via);
        }
        common.emplace_back("backup");
        for (const Mpls::WeightedVia& via : adjacency.backups) {
            add(type, common, via);
        }
    }
    void operator()(const MvpnView& entry) { add({}, {}).intf = interfaces_->text(entry.intf); }
    void operator()(const DamagedView& damaged) { add("corrupt", {damaged.what}); }

  private:
    Row& add(std::string type, Flags flags) {
        Row& row = rows_.emplace_back();
        row.type = std::move(type);
        row.flags = std::move(flags);
        return row;
    }
    void add(const std::string& type, const Flags& common, const Mpls::WeightedVia& member) {
        Row& row = add(type, common);
        row.action = wordOf(member.via.action());
        row.labels = labelText(labelsOf(member.via));
        row.nexthop = member.via.nexthop.text();
        row.intf = interfaces_->text(member.via.intfId);
        row.weight = fmt::format("{}", member.weight);
        for (const auto& [key, value] : attributesOf(member.via)) {
            row.flags.push_back(value.empty() ? key : key + "=" + value);
        }
    }

    const IntfText* interfaces_;
    std::vector<Row> rows_;
};

} // namespace

std::vector<TextTable::Column> routeColumns() {
    using enum TextTable::Align;
    return {{"Table", left},     {"Label", right},     {"Type", left},
            {"Action", left},    {"Out labels", left}, {"Next hop", left},
            {"Interface", left}, {"Weight", right},    {"Flags", left}};
}

std::vector<TextTable::Cells> routeRows(const RouteView& route, const IntfText& interfaces) {
    Writer writer(interfaces);
    std::visit(writer, route.content);
    std::vector<TextTable::Cells> rows;
    for (const Row& row : writer.rows()) {
        rows.push_back({std::string(nameOf(route.table)), fmt::format("{}", route.key), row.type,
                        row.action, row.labels, row.nexthop, row.intf, row.weight,
                        fmt::format("{}", fmt::join(row.flags, " "))});
    }
    return rows;
}

} // namespace OvixCtl
