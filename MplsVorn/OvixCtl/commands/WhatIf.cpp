// What a change would move, by the tables alone.

#include <algorithm>
#include <fmt/format.h>

#include "Tables/TableCopy.h"
#include "commands/AgentAnswer.h"
#include "commands/AgentSituation.h"
#include "commands/ChangeRoute.h"
#include "route/RouteWords.h"
#include "tables/EntryWriting.h"
#include "whatif/Moves.h"

namespace OvixCtl {

namespace {

constexpr const char* changesKnown =
    "\"link INTERFACE down\", \"via ADDRESS weight N\", or \"lfib add\", \"replace\" or \"del\" "
    "and a route";

/// Words may come one by one, or several in an argument.
std::vector<std::string> wordsOf(const Request& request) {
    std::vector<std::string> words;
    for (const std::string& argument : request.words) {
        for (std::size_t at = argument.find_first_not_of(' '); at != std::string::npos;) {
            const std::size_t end = std::min(argument.find(' ', at), argument.size());
            words.push_back(argument.substr(at, end - at));
            at = argument.find_first_not_of(' ', end);
        }
    }
    return words;
}

/// Refused, naming the word, unless they are a state of a link or the weight of a next hop.
Tessel::Result<Assumptions> assumptionsOf(const std::vector<std::string>& words) {
    Assumptions assumed;
    if (words.size() == 3 && words[0] == "link" && words[2] == "down") {
        assumed.downLinks = {Lumo::IntfId(words[1])};
        return assumed;
    }
    if (words.size() == 4 && words[0] == "via" && words[2] == "weight") {
        const auto address = Lumo::IpGenAddr::fromText(words[1]);
        const bool isNumber =
            words[3].find_first_not_of("0123456789") == std::string::npos && words[3].size() <= 9;
        if (address.family() == Lumo::IpFamily::none || !isNumber) {
            return Tessel::Refused{fmt::format("\"{}\" is no {}", isNumber ? words[1] : words[3],
                                               isNumber ? "IP address" : "weight")};
        }
        assumed.weighted = address;
        assumed.weight = static_cast<std::uint32_t>(std::stoul(words[3]));
        return assumed;
    }
    return Tessel::Refused{
        fmt::format("\"{}\" is no change: {}", fmt::join(words, " "), changesKnown)};
}

/// The labels whose ways an entry may change.
std::vector<std::uint32_t> labelsOf(const EntryName& name, const Tessel::TableReader& reader) {
    if (name.table != Mpls::TableId::hardwareAdjacencies) {
        return {name.key};
    }
    const Mpls::PublishedTables tables(reader.another());
    std::vector<std::uint32_t> labels;
    tables.hardware()->forEachLabel([&](std::uint32_t label) {
        const auto key = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
        if (tables.hardware()->route(key).adjacencyKey == name.key) {
            labels.push_back(label);
        }
    });
    return labels;
}

Tessel::Result<EntryName> changeCopy(Mpls::TablePublisher& copy, const TableView& now,
                                     const std::string& verb,
                                     const std::vector<std::string>& words) {
    if (verb == "del") {
        const Tessel::Result<EntryName> name = parseEntryName(words);
        if (!name) {
            return name;
        }
        const auto removed = removeNamed(copy, now, name.value());
        return removed ? name : Tessel::Result<EntryName>(removed.refused());
    }
    const Tessel::Result<ParsedEntry> parsed = parseEntry(words);
    if (!parsed) {
        return parsed.refused();
    }
    const Entry& entry = parsed.value().entry;
    if (verb == "add" && exists(now, copy, entry)) {
        return mustReplace({entry.table, entry.key});
    }
    const auto changed = changeEntry(copy, now, entry);
    return changed ? Tessel::Result<EntryName>(EntryName{entry.table, entry.key})
                   : changed.refused();
}

Tessel::Result<Moves> movesOfRoute(const Tessel::TableCopy& tables,
                                   const std::vector<std::string>& words) {
    if (words.size() < 3 || (words[1] != "add" && words[1] != "replace" && words[1] != "del")) {
        return Tessel::Refused{
            fmt::format("\"{}\" is no change: {}", fmt::join(words, " "), changesKnown)};
    }
    const Ptr<Tessel::TableReader> before = tables.reader();
    Mpls::TablePublisher copy(tables.memory());
    const auto name =
        changeCopy(copy, TableView(before), words[1], {words.begin() + 2, words.end()});
    if (!name) {
        return name.refused();
    }
    copy.commit();
    const auto after = Tessel::make<Tessel::TableReader>("tables", copy.tables().memory());
    return movesBetween(before, after, labelsOf(name.value(), *before));
}

/// What the tables do not have, and a running agent knows.
struct Beside {
    std::vector<L3::Route> routes;  ///< of the configuration, and the subnets of its ports
    std::vector<std::string> ports; ///< their names
    std::string missing;            ///< why it is not known
};

/// The packets of a port's subnets leave by the port.
void takeSubnets(const OvixAgent::PortConfig& port, std::vector<L3::Route>& routes) {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId(port.name);
    const auto via = Mpls::Via::forward(options);
    for (const OvixAgent::InterfaceAddress& own : port.addresses) {
        if (via) {
            const Lumo::IpGenPrefix subnet = own.subnet();
            const bool isDefault = port.vrf == L3::defaultVrf;
            routes.push_back({{L3::RouteKey::mainTable, subnet.address(), subnet.length()},
                              L3::Route::Kind::forward,
                              {{via.value(), 1}},
                              isDefault ? L3::VrfName() : L3::VrfName(port.vrf)});
        }
    }
}

/// Sub-interfaces go down with their parent.
Beside takeFromAgent(const Request& request, Assumptions& assumed) {
    const auto situation = configurationOf(request);
    if (!situation) {
        return {{}, {}, situation.refused().what};
    }
    const OvixAgent::AgentConfig& config = situation.value().config;
    Beside beside;
    for (const OvixAgent::PortConfig& port : config.ports) {
        beside.ports.push_back(port.name);
        takeSubnets(port, beside.routes);
        if (port.isSubInterface() && assumed.isDown(Lumo::IntfId(config.ports[port.parent].name))) {
            assumed.downLinks.emplace_back(port.name);
        }
    }
    for (const auto& placed : config.routes) {
        beside.routes.push_back(placed.value);
    }
    return beside;
}

/// `name` is that of the link or the next hop. Adds the names of the agent's ports.
Tessel::Result<Moves> movesOfState(const Request& request, const Ptr<Tessel::TableReader>& reader,
                                   Assumptions assumed, const std::string& name,
                                   Interface::Names& names) {
    const Beside beside = takeFromAgent(request, assumed);
    for (const std::string& port : beside.ports) {
        names.add(port);
    }
    Moves moves = movesUnder(reader, assumed, beside.routes);
    const bool isPort = !assumed.weighted && std::find(beside.ports.begin(), beside.ports.end(),
                                                       name) != beside.ports.end();
    if (!moves.isAbout() && !isPort) {
        return Tessel::Refused{fmt::format(
            "{}no route {}of tables \"{}\" leads {} \"{}\"",
            beside.missing.empty() && !assumed.weighted ? "there is no such port, and " : "",
            beside.missing.empty() ? "of the agent or " : "", request.tables,
            assumed.weighted ? "to" : "out of", name)};
    }
    if (!beside.missing.empty()) {
        note(request,
             "sub-interfaces and routes of the configuration are left out: " + beside.missing);
    }
    return moves;
}

Json sharesJson(const Way& way, const IntfText& interfaces) {
    Json shares = Json::array();
    for (const Share& share : way.shares) {
        const Way one{{share}, way.isMulticast};
        const std::string text = wayText(one, interfaces);
        const bool hasNexthop = share.nexthop.family() != Lumo::IpFamily::none;
        shares.push_back(Json{
            {"to", text.substr(0, text.rfind(' ', text.size() - 3))},
            {"interface", share.intf.empty() ? Json(nullptr) : Json(interfaces.word(share.intf))},
            {"nexthop", hasNexthop ? Json(share.nexthop.text()) : Json(nullptr)},
            {"percent", percentOf(share, way)}});
    }
    return shares;
}

Json countsJson(const Moves::Counts& counts) {
    return {{"changed", counts.changed}, {"lost", counts.lost}, {"gained", counts.gained}};
}

void printMovesAsJson(const Request& request, std::uint64_t generation, Moves& moves,
                      const IntfText& interfaces) {
    Json list = Json::array();
    for (const Move& move : moves.all()) {
        list.push_back(Json{{"of", move.isOfPrefixes ? "prefixes" : "labels"},
                            {"count", move.count},
                            {"before", sharesJson(move.before, interfaces)},
                            {"after", sharesJson(move.after, interfaces)},
                            {"examples", move.examples}});
    }
    const Json answer{{"tables", request.tables},
                      {"generation", generation},
                      {"labels", countsJson(moves.labels())},
                      {"prefixes", countsJson(moves.prefixes())},
                      {"moves", std::move(list)}};
    fmt::print("{}\n", answer.dump(-1, ' ', false, Json::error_handler_t::replace));
}

std::string countsText(const char* what, const Moves::Counts& counts) {
    return fmt::format("{}: {} change their way, {} of them lose it, {} gain one\n", what,
                       counts.changed, counts.lost, counts.gained);
}

void printMoves(std::uint64_t generation, Moves& moves, const IntfText& interfaces) {
    fmt::print("generation {}; nothing is changed\n{}{}", generation,
               countsText("labels", moves.labels()), countsText("prefixes", moves.prefixes()));
    for (const Move& move : moves.all()) {
        fmt::print("\n{} {}: {}{}\n  from {}\n  to   {}\n", move.count,
                   move.isOfPrefixes ? "prefixes" : "labels", fmt::join(move.examples, ", "),
                   move.count > move.examples.size() && move.isOfPrefixes ? ", …" : "",
                   wayText(move.before, interfaces), wayText(move.after, interfaces));
    }
}

} // namespace

Tessel::Result<int> tellWhatIf(const Request& request) {
    const std::vector<std::string> words = wordsOf(request);
    const bool isRoute = !words.empty() && words.front() == "lfib";
    const auto assumed =
        isRoute ? Tessel::Result<Assumptions>(Assumptions()) : assumptionsOf(words);
    if (!assumed) {
        return usageError(request, assumed.refused());
    }
    if (const auto present = checkTablesExist(request.tables); !present) {
        return present.refused();
    }
    const auto memory = Tessel::TableMemory::sharedForReading(request.tables);
    const auto copy = Tessel::TableCopy::ofNewest(request.tables, memory.bytes());
    const Ptr<Tessel::TableReader> reader = copy.reader();
    Interface::Names names = Interface::Names::read(*reader);
    Tessel::Result<Moves> moves =
        isRoute ? movesOfRoute(copy, words)
                : movesOfState(request, reader, std::move(assumed).value(), words[1], names);
    if (!moves) {
        return moves.refused();
    }
    const IntfText interfaces({std::move(names)});
    if (request.json) {
        printMovesAsJson(request, reader->generation(), moves.value(), interfaces);
    } else {
        printMoves(reader->generation(), moves.value(), interfaces);
    }
    return ExitCode::success;
}

} // namespace OvixCtl
