#include "route/RouteGrammar.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <span>

#include "Config/ConfigText.h"
#include "route/RouteWords.h"
#include "route/ViaWords.h"

namespace OvixCtl {

using Mpls::LfibViaSetType;
using Mpls::LfibViaType;
using Mpls::TableId;
using OvixAgent::inQuotes;

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw UsageError(what);
}

/// The tables that a word is for.
namespace For {
constexpr unsigned lfib = 1;
constexpr unsigned hardware = 2;
constexpr unsigned adjacency = 4;
constexpr unsigned mvpn = 8;
constexpr unsigned vias = lfib | adjacency;
} // namespace For

constexpr unsigned kindOf(TableId table) noexcept {
    return Mpls::isLfib(table)                     ? For::lfib
           : table == TableId::hardwareRoutes      ? For::hardware
           : table == TableId::hardwareAdjacencies ? For::adjacency
                                                   : For::mvpn;
}

/// Takes the words of an entry one by one.
class Parser {
  public:
    explicit Parser(std::span<const std::string> words) : rest_(words) {
        if (!rest_.empty() && !rest_.beginWithNumber()) {
            takeFirstTable();
        }
        key_ = parseKey(rest_.next("a label"), table_);
    }

    ParsedEntry parse();
    EntryName parseName();

    struct Word {
        std::string_view word;
        unsigned tables;
        void (*take)(Parser&);
        bool isOnce = true;
    };
    static const std::array<Word, 15> all;

  private:
    void takeWord(const std::string& word);
    void takeFirstTable();
    void takeTable() { table_ = parseTable(rest_.next("the name of a table"), lfibWords()); }
    std::uint8_t nextByte(std::string_view noun) {
        return static_cast<std::uint8_t>(parseNumber(rest_.next("a number"), noun, 0, 255));
    }
    void takeTail();
    void startVia(bool isBackup);
    void finishVia();
    decltype(Entry::content) finish();
    Mpls::LabelRoute labelRoute();
    LfibViaType viaType() const;

    Words rest_;
    TableId table_ = TableId::transitLfib;
    std::uint32_t key_ = 0;
    std::set<std::string_view> given_; ///< the words that the entry has
    std::optional<ViaDraft> via_;
    bool hasNexthop_ = false;
    std::optional<LfibViaType> type_;
    Mpls::LabelRoute route_; ///< an adjacency's set type and vias, too
    std::vector<Mpls::WeightedVia> backups_;
    bool useBackups_ = false;
    Mpls::Hardware::Route hardware_;
    Routing::Multicast::MvpnVrfIntfId vpn_;
};

constexpr std::array<Parser::Word, 15> Parser::all{{
    {"table", For::lfib, [](Parser& p) { p.takeTable(); }},
    {"multicast", For::vias, [](Parser& p) { p.route_.setType = LfibViaSetType::multicast; }},
    {"type", For::vias, [](Parser& p) { p.type_ = parseType(p.rest_.next("a type")); }},
    {"owner", For::lfib, [](Parser& p) { p.route_.owner = parseOwner(p.rest_.next("an owner")); }},
    {"preference", For::lfib,
     [](Parser& p) {
         p.route_.preference =
             static_cast<std::uint8_t>(parseNumber(p.rest_.next("a number"), "preference", 1, 255));
     }},
    {"flags", For::lfib, [](Parser& p) { p.route_.flags = p.nextByte("flags"); }},
    {"tail", For::lfib, [](Parser& p) { p.takeTail(); }},
    {"use-backups", For::adjacency, [](Parser& p) { p.useBackups_ = true; }},
    {"nexthop", For::vias, [](Parser& p) { p.startVia(false); }, false},
    {"backup", For::adjacency, [](Parser& p) { p.startVia(true); }, false},
    {"adjacency", For::hardware,
     [](Parser& p) {
         p.hardware_.adjacencyKey =
             parseKey(p.rest_.next("the id of an adjacency"), TableId::hardwareAdjacencies);
     }},
    {"derived", For::hardware, [](Parser& p) { p.hardware_.derived = true; }},
    {"unprogrammed", For::hardware, [](Parser& p) { p.hardware_.unprogrammed = true; }},
    {"dev", For::mvpn, [](Parser& p) { p.vpn_.intfId = p.rest_.nextInterface(); }},
    {"vlan", For::mvpn, [](Parser& p) { p.vpn_.intfId = p.rest_.nextVlan(); }},
}};

/// The words that an entry of a table may have behind its key.
std::vector<std::string_view> wordsFor(unsigned kind) {
    std::vector<std::string_view> words;
    for (const Parser::Word& known : Parser::all) {
        if ((known.tables & kind) != 0) {
            words.push_back(known.word);
        }
    }
    if ((kind & For::vias) != 0) {
        const auto ofVias = ViaDraft::words();
        words.insert(words.end(), ofVias.begin(), ofVias.end());
    }
    return words;
}

ParsedEntry Parser::parse() {
    while (!rest_.empty()) {
        takeWord(rest_.next(""));
    }
    finishVia();
    auto content = finish();
    return {{table_, key_, std::move(content)}, rest_.interfaces()};
}

EntryName Parser::parseName() {
    std::optional<Mpls::RouteOwner> owner;
    while (!rest_.empty()) {
        const std::string& word = rest_.next("");
        if ((word != "table" && word != "owner") || !Mpls::isLfib(table_)) {
            fail(fmt::format("{} is not expected here; known: table, owner", inQuotes(word)));
        }
        if (word == "table") {
            once(given_, "table");
            takeTable();
        } else {
            once(given_, "owner");
            owner = parseOwner(rest_.next("an owner"));
        }
    }
    return {table_, key_, owner};
}

void Parser::takeWord(const std::string& word) {
    const unsigned kind = kindOf(table_);
    for (const Word& known : all) {
        if (known.word == word && (known.tables & kind) != 0) {
            if (known.isOnce) {
                once(given_, known.word);
            }
            return known.take(*this);
        }
    }
    const bool isTaken =
        (kind & For::vias) != 0 && (via_ ? *via_ : via_.emplace()).take(word, rest_);
    if (!isTaken) {
        fail(fmt::format("{} is not expected here{}", inQuotes(word),
                         OvixAgent::suggestion(word, wordsFor(kind))));
    }
}

void Parser::takeFirstTable() {
    constexpr auto tables = Tessel::wordList<TableId>();
    const std::string& word = rest_.next("");
    const auto table = Tessel::valueOf<TableId>(word);
    if (!table) {
        fail(fmt::format("{} is neither a table nor a label{}", inQuotes(word),
                         OvixAgent::suggestion(word, tables)));
    }
    table_ = *table;
    given_.insert("table");
}

void Parser::takeTail() {
    route_.tail =
        Mpls::LfibMulticastIpLookupVia::toward(rest_.nextIs("vlan")  ? rest_.nextVlan()
                                               : rest_.nextIs("dev") ? rest_.nextInterface()
                                                                     : Lumo::IntfId());
    route_.setType = LfibViaSetType::multicast;
}

void Parser::startVia(bool isBackup) {
    if (via_ && !hasNexthop_ && !isBackup) {
        fail("\"nexthop\" comes before the words of its via");
    }
    finishVia();
    hasNexthop_ = true;
    via_.emplace(isBackup);
}

void Parser::finishVia() {
    if (!via_) {
        return;
    }
    if (route_.tail && !hasNexthop_) {
        fail("beside a tail each via begins with \"nexthop\"");
    }
    auto& vias = via_->isBackup() ? backups_ : route_.vias;
    const auto made = via_->made();
    if (!made) {
        fail(fmt::format("{} {}: {}", via_->isBackup() ? "backup" : "via", vias.size() + 1,
                         made.refused().what));
    }
    vias.push_back(made.value());
    via_.reset();
}

decltype(Entry::content) Parser::finish() {
    switch (table_) {
    case TableId::hardwareRoutes:
        if (!given_.contains("adjacency")) {
            fail("a hardware route needs adjacency");
        }
        hardware_.routeKey = Mpls::RouteKey::fromLabel(Lumo::MplsLabel(key_));
        return hardware_;
    case TableId::hardwareAdjacencies:
        if (route_.vias.empty()) {
            fail("an adjacency needs via, dev, fec, vrf or nexthop");
        }
        return Mpls::Hardware::AdjacencyVias{viaType(), route_.setType, useBackups_, route_.vias,
                                             backups_};
    case TableId::mvpnIntfStatus:
        if (given_.size() != 2) { // the table and one of them
            fail("a multicast VPN needs either dev or vlan");
        }
        vpn_.vrfId = {key_};
        return vpn_;
    default:
        return labelRoute();
    }
}

/// The type that is given, which must not contradict the vias, or else the one that they imply.
LfibViaType Parser::viaType() const {
    const bool hasTail = route_.tail.has_value();
    const LfibViaType type = type_.value_or(Mpls::impliedType(route_.vias, hasTail));
    for (const auto* vias : {&route_.vias, &backups_}) {
        if (const auto checked = Mpls::checkType(type, *vias, hasTail); !checked) {
            fail(checked.refused().what);
        }
        const bool isWeightless = std::all_of(vias->begin(), vias->end(),
                                              [](const auto& via) { return via.weight == 0; });
        if (!vias->empty() && isWeightless) {
            fail("the weights add up to 0, which is out of range (1..4294967295)");
        }
    }
    return type;
}

Mpls::LabelRoute Parser::labelRoute() {
    if (route_.vias.empty() && !route_.tail) {
        fail("a route needs via, dev, fec, vrf, nexthop or tail");
    }
    if ((route_.isLookUp() || route_.tail) && !given_.contains("table")) {
        table_ = TableId::decapLfib;
    }
    route_.label = Lumo::MplsLabel(key_);
    route_.table = table_;
    route_.viaType = viaType();
    if (route_.isLookUp() && (route_.isMulticast() || route_.vias.front().weight != 1)) {
        fail("a lookup in a VRF has neither weight nor multicast");
    }
    return route_;
}

} // namespace

std::vector<std::string_view> routeWords() {
    return wordsFor(For::lfib);
}

Tessel::Result<ParsedEntry> parseEntry(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parse(); });
}

Tessel::Result<EntryName> parseEntryName(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parseName(); });
}

} // namespace OvixCtl
