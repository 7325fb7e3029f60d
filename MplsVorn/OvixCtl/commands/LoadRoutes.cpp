// The commands that compare the tables with a configuration: diff and load.

#include <fmt/format.h>
#include <iostream>
#include <iterator>

#include "Config/Config.h"
#include "Published/TablePublisher.h"
#include "Tables/TableLoading.h"
#include "commands/Command.h"
#include "route/RouteJson.h"
#include "tables/EntryWriting.h"

namespace OvixCtl {

namespace {

/// "-" is standard input.
Tessel::Result<OvixAgent::AgentConfig> readConfig(const std::string& file) {
    if (file != "-") {
        return OvixAgent::loadConfig(file);
    }
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    return OvixAgent::parseConfig(text, "standard input");
}

/// The value; what is refused is thrown, which ends the command.
template <typename T>
T orThrow(Tessel::Result<T> result) {
    if (!result) {
        throw std::runtime_error(result.refused().what);
    }
    if constexpr (!std::is_void_v<T>) {
        return std::move(result).value();
    }
}

Ptr<Tessel::TableReader> load(const OvixAgent::AgentConfig& config, const std::string& file,
                              Mpls::TablePublisher& publisher) {
    orThrow(OvixAgent::loadTables(config, file, publisher));
    publisher.commit();
    return Tessel::make<Tessel::TableReader>(file, publisher.tables().memory());
}

/// The tables as a configuration wants them, in memory of their own. Throws, naming the file and
/// the line, for what tables would refuse.
struct WantedTables {
    explicit WantedTables(const std::string& file)
        : config(orThrow(readConfig(file))), publisher(Tessel::TableMemory::ofProcess()),
          view(load(config, file, publisher)) {}

    OvixAgent::AgentConfig config;
    Mpls::TablePublisher publisher;
    TableView view;
};

void printDiffLines(const std::vector<Change>& changes, const IntfText& interfaces) {
    for (const Change& change : changes) {
        if (change.before) {
            fmt::print("-{}\n", routeText(*change.before, interfaces));
        }
        if (change.after) {
            fmt::print("+{}\n", routeText(*change.after, interfaces));
        }
    }
}

void printDiffJson(const std::vector<Change>& changes, const IntfText& interfaces,
                   const Tessel::TableReader& tables) {
    const auto side = [&](const std::optional<Entry>& entry) {
        return entry ? routeJson(*entry, interfaces) : "null";
    };
    std::vector<std::string> list;
    for (const Change& change : changes) {
        list.push_back(
            fmt::format(R"({{"before":{},"after":{}}})", side(change.before), side(change.after)));
    }
    fmt::print(R"({{"tables":{},"generation":{},"changes":[{}]}})"
               "\n",
               jsonText(tables.name()), tables.generation(), fmt::join(list, ","));
}

void apply(const std::vector<Change>& changes, Mpls::TablePublisher& publisher) {
    for (const Change& change : changes) {
        if (!change.after) {
            entryDel(publisher, change.before->table, change.before->key);
        }
    }
    for (const Change& change : changes) {
        if (change.after) {
            entryIs(publisher, *change.after);
        }
    }
}

} // namespace

Tessel::Result<int> diffRoutes(const Request& request) {
    const std::string& file = request.words.front();
    const WantedTables wanted(file);
    const auto frozen = freezeTables(request.tables);
    if (!frozen) {
        return frozen.refused();
    }
    const TableView now(frozen.value());
    const TableDiff diff = differences(now, wanted.view);
    const IntfText interfaces(
        {Interface::Names::read(now.reader()), Interface::Names::read(wanted.view.reader())});
    if (request.json) {
        printDiffJson(diff.changes, interfaces, now.reader());
    } else {
        printDiffLines(diff.changes, interfaces);
    }
    for (const std::string& what : diff.damage) {
        complain(request, what);
    }
    if (!diff.damage.empty()) {
        return ExitCode::usage;
    }
    return diff.changes.empty() ? ExitCode::success : ExitCode::failure;
}

Tessel::Result<int> loadRoutes(const Request& request) {
    const std::string& file = request.words.front();
    if (const auto present = requireTables(request); !present) {
        return present.refused();
    }
    const WantedTables wanted(file);
    Mpls::TablePublisher publisher(Tessel::TableMemory::sharedForWriting(request.tables));
    if (const std::size_t repaired = publisher.tables().repaired(); repaired != 0) {
        complain(request, fmt::format("tables \"{}\": {} damaged entries were removed",
                                      request.tables, repaired));
    }
    // The memory of these entries is not used again before the commit.
    const TableView now(
        Tessel::make<Tessel::TableReader>(request.tables, publisher.tables().memory()));
    const TableDiff diff = differences(now, wanted.view);
    for (const OvixAgent::PortConfig& port : wanted.config.ports) {
        publisher.interfaces().intfId(port.name);
    }
    apply(diff.changes, publisher);
    publisher.commit();
    printCounts(request, publisher.tables().generation(), countsOf(diff.changes));
    return ExitCode::success;
}

} // namespace OvixCtl
