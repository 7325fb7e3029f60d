#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "LocalTables.h"
#include "route/RouteGrammar.h"
#include "route/RoutePrinting.h"
#include "tables/EntryWriting.h"

namespace CtlTesting {

using OvixCtl::IntfText;

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

/// Tables in this process, changed by entries as a command line gives them; each is written as it
/// is.
class Tables {
  public:
    void add(const std::string& line) {
        const auto parsed = OvixCtl::parseEntry(words(line));
        ASSERT_TRUE(parsed) << line << ": " << parsed.refused().what;
        for (const std::string& name : parsed.value().interfaces) {
            publisher().interfaces().intfId(name);
        }
        OvixCtl::entryIs(publisher(), parsed.value().entry);
    }
    /// As an operator does it: what depends on the entry follows. "" or why it is refused.
    std::string change(const std::string& line) {
        const auto parsed = OvixCtl::parseEntry(words(line));
        EXPECT_TRUE(parsed) << line << ": " << parsed.refused().what;
        for (const std::string& name : parsed.value().interfaces) {
            publisher().interfaces().intfId(name);
        }
        const auto done = OvixCtl::changeEntry(publisher(), view(), parsed.value().entry);
        return done ? "" : done.refused().what;
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

/// One entry that has been published and read again.
class PublishedRoute : public Tables {
  public:
    explicit PublishedRoute(const std::string& line) {
        add(line);
        commit();
    }
    OvixCtl::Entry read() const {
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

/// A via that pops.
inline Mpls::WeightedVia popTo(const std::string& nexthop, std::uint32_t weight = 1) {
    Mpls::ViaOptions options;
    options.nexthop = Lumo::IpGenAddr::fromText(nexthop);
    return {Mpls::Via::pop(options).value(), weight};
}

} // namespace CtlTesting
