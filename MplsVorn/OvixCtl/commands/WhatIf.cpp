// What a change would move, by the tables alone.

#include <algorithm>
#include <fmt/format.h>

#include "Summary/JsonText.h"
#include "Tables/TableCopy.h"
#include "commands/AgentAnswer.h"
#include "commands/BesideTables.h"
#include "commands/ChangeRoute.h"
#include "route/RouteWords.h"
#include "tables/EntryWriting.h"
#include "whatif/Moves.h"

namespace OvixCtl {

using OvixAgent::dumped;

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
        Tessel::Result<EntryName> name = parseEntryName(words);
        if (!name) {
            return name;
        }
        const auto removed = removeNamed(copy, now, name.value());
        return removed ? std::move(name) : removed.refused();
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

/// `names` become those of the tables when they are changed, and of the agent's ports.
Tessel::Result<Moves> movesOfRoute(const Request& request, const Tessel::TableCopy& tables,
                                   const std::vector<std::string>& words, Interface::Names& names) {
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
    Assumptions none;
    const BesideTables beside = BesideTables::of(request, none);
    if (!beside.missing.empty()) {
        note(request, "pseudowires of the configuration are left out: " + beside.missing);
    }
    names = Interface::Names::read(*after);
    for (const std::string& port : beside.ports) {
        names.add(port);
    }
    return movesBetween(before, after, labelsOf(name.value(), *before), beside.wires);
}

/// `name` is that of the link or the next hop. Adds the names of the agent's ports.
Tessel::Result<Moves> movesOfState(const Request& request, const Ptr<Tessel::TableReader>& reader,
                                   Assumptions assumed, const std::string& name,
                                   Interface::Names& names) {
    const BesideTables beside = BesideTables::of(request, assumed);
    for (const std::string& port : beside.ports) {
        names.add(port);
    }
    Moves moves = movesUnder(reader, assumed, beside.routes, beside.wires);
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
        note(request, "sub-interfaces, routes and pseudowires of the configuration are left out: " +
                          beside.missing);
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
        list.push_back(Json{{"of", std::string(Tessel::wordOf(move.of))},
                            {"count", move.count},
                            {"before", sharesJson(move.before, interfaces)},
                            {"after", sharesJson(move.after, interfaces)},
                            {"examples", move.examples}});
    }
    Json answer{{"tables", request.tables}, {"generation", generation}};
    for (const auto& [word, of] : Tessel::words<Moved>) {
        answer[std::string(word)] = countsJson(moves.counts(of));
    }
    answer["moves"] = std::move(list);
    fmt::print("{}\n", dumped(answer));
}

std::string countsText(std::string_view what, const Moves::Counts& counts) {
    return fmt::format("{}: {} change their way, {} of them lose it, {} gain one\n", what,
                       counts.changed, counts.lost, counts.gained);
}

/// "2 labels: 100-101", "1 pseudowires, to the other end: acme".
std::string headOf(const Move& move) {
    const std::string examples = fmt::format("{}", fmt::join(move.examples, ", "));
    const bool hasMore = move.of != Moved::labels && move.count > move.examples.size();
    return fmt::format("{} {}: {}{}", move.count,
                       move.of == Moved::pseudowires ? "pseudowires, to the other end"
                       : move.of == Moved::circuits  ? "pseudowires, from the other end"
                                                     : Tessel::wordOf(move.of),
                       examples, hasMore ? ", …" : "");
}

void printMoves(std::uint64_t generation, Moves& moves, const IntfText& interfaces) {
    fmt::print("generation {}; nothing is changed\n", generation);
    for (const auto& [word, of] : Tessel::words<Moved>) {
        fmt::print("{}", countsText(word, moves.counts(of)));
    }
    for (const Move& move : moves.all()) {
        fmt::print("\n{}\n  from {}\n  to   {}\n", headOf(move), wayText(move.before, interfaces),
                   wayText(move.after, interfaces));
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
        isRoute ? movesOfRoute(request, copy, words, names)
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
