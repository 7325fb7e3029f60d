// The commands that compare the tables with a configuration: diff and load.

#include <fmt/format.h>
#include <functional>
#include <optional>
#include <stdexcept>

#include "Capture/CliProgress.h"
#include "commands/Command.h"
#include "route/RouteJson.h"
#include "route/RouteSource.h"
#include "tables/TableLoad.h"

namespace OvixCtl {

namespace {

/// The value; what is refused is thrown, which ends the command.
void orThrow(const Tessel::Result<void>& result) {
    if (!result) {
        throw std::runtime_error(result.refused().what);
    }
}

/// Tables that are opened when the first entry of a file has been understood: until then nobody
/// waits for them, and none are made.
class Target {
  public:
    using Open = std::function<Tessel::TableMemory()>;

    explicit Target(Open open) : open_(std::move(open)) {}

    Mpls::TablePublisher& publisher() {
        if (!publisher_) {
            publisher_.emplace(open_());
            load_.emplace(*publisher_, Mpls::RouteOwner::file);
        }
        return *publisher_;
    }
    /// Puts the routes of a file in the place of those that came from files. Throws, naming the
    /// file and the line, for what cannot be read or the tables refuse.
    ChangeCounts load(const std::string& file) {
        auto progress = OvixAgent::CliProgress::onTerminal(false, "routes");
        const auto source = RouteSource::open(file);
        orThrow(source ? Tessel::Result<void>() : source.refused());
        std::uint64_t routes = 0;
        orThrow(source.value().read(
            [&](const Entry& entry, double part) {
                ++routes;
                if (progress.isDue(1)) {
                    progress.show(routes, part);
                }
                publisher();
                return load_->add(entry);
            },
            [&](const std::string& name) { publisher().interfaces().intfId(name); }));
        publisher();
        load_->finish();
        publisher_->commit();
        progress.clear();
        return load_->counts();
    }
    std::size_t leftOut() const { return load_->leftOut(); }

  private:
    Open open_;
    std::optional<Mpls::TablePublisher> publisher_;
    std::optional<TableLoad> load_;
};

/// Says how many routes of other owners wait for those from files, and the other way round.
void noteWaiting(const Request& request, const Mpls::LabelRoutes& routes) {
    const auto [theirs, own] = routes.waitingFor(Mpls::RouteOwner::file);
    if (theirs != 0) {
        note(request,
             fmt::format("routes of other owners that wait for those of files: {}", theirs));
    }
    if (own != 0) {
        note(request, fmt::format("routes of files that wait for those of other owners: {}", own));
    }
}

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

} // namespace

Tessel::Result<int> diffRoutes(const Request& request) {
    const auto frozen = freezeTables(request.tables); // before a large file is read in vain
    if (!frozen) {
        return frozen.refused();
    }
    Target target([] { return Tessel::TableMemory::ofProcess(); });
    const std::string& file = request.words.front();
    target.load(file);
    const TableView wanted(
        Tessel::make<Tessel::TableReader>(file, target.publisher().tables().memory()));
    const TableView now(frozen.value());
    const TableDiff diff = differences(now, wanted, Mpls::RouteOwner::file);
    const IntfText interfaces(
        {Interface::Names::read(now.reader()), Interface::Names::read(wanted.reader())});
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
    if (const auto present = requireTables(request); !present) {
        return present.refused();
    }
    Target target([&] { return openForBatch(request); });
    const ChangeCounts counts = target.load(request.words.front());
    const Tessel::TableWriter& tables = target.publisher().tables();
    if (tables.repaired() != 0) {
        complain(request, fmt::format("tables \"{}\": {} damaged entries were removed",
                                      request.tables, tables.repaired()));
    }
    printCounts(request, tables.generation(), counts);
    if (target.leftOut() != 0) {
        note(request,
             fmt::format("routes of other owners that were left out: {}", target.leftOut()));
    }
    noteWaiting(request, target.publisher().labelRoutes());
    return ExitCode::success;
}

} // namespace OvixCtl
