#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "LocalTables.h"
#include "Tables/TableLoading.h"
#include "route/EntryTable.h"
#include "route/RoutePrinting.h"
#include "route/RouteRequest.h"
#include "tables/TableView.h"

namespace CtlTesting {

using OvixCtl::IntfText;
using OvixCtl::RouteView;

/// The words of a line.
inline std::vector<std::string> words(const std::string& line) {
    std::vector<std::string> found(1);
    for (const char c : line) {
        if (c == ' ') {
            found.emplace_back();
        } else {
            found.back() += c;
        }
    }
    return found;
}

/// Tables in this process, changed by routes as a command line gives them.
class Tables {
  public:
    void add(const std::string& line) {
        const auto request = OvixCtl::parseRoute(words(line)).value();
        for (const auto& port : request.interfaces.ports) {
            publisher().interfaces().intfId(port.name);
        }
        OvixAgent::loadRoute(request.route, request.interfaces, publisher().lfib(request.table));
    }
    void commit() {
        publisher().commit();
        local.reader->refresh();
    }
    Mpls::TablePublisher& publisher() { return local.publisher; }
    OvixCtl::TableView view() const { return OvixCtl::TableView(local.reader); }
    IntfText names() const { return IntfText({Interface::Names::read(*local.reader)}); }

    TestSupport::LocalTables local;
};

/// One route that has been published and read again.
class PublishedRoute : public Tables {
  public:
    explicit PublishedRoute(const std::string& line) {
        add(line);
        commit();
    }
    RouteView read() const {
        const OvixCtl::TableView tables = view();
        for (std::size_t i = 0; i < OvixCtl::entryTables; ++i) {
            const auto table = static_cast<Mpls::TableId>(i);
            if (const auto keys = tables.keys(table).keys; !keys.empty()) {
                return tables.entry(table, keys.front());
            }
        }
        return {};
    }
};

/// A via record.
inline Ovix::OvixMplsVia via(Lumo::MplsLabelAction action, const std::string& nexthop,
                             std::vector<std::uint8_t> packedLabels = {}) {
    Ovix::OvixMplsVia made;
    made.labelAction = static_cast<std::uint32_t>(action);
    made.payloadType = static_cast<std::uint32_t>(Mpls::PayloadType::automatic);
    made.nexthop = Lumo::IpGenAddr::fromText(nexthop);
    made.labelsIs(packedLabels);
    return made;
}

} // namespace CtlTesting
