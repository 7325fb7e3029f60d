#include "route/RouteGrammar.h"

#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <limits>
#include <optional>
#include <span>

#include "Config/ConfigText.h"
#include "route/RouteWords.h"
#include "tables/TableView.h"

namespace OvixCtl {

using Lumo::MplsLabelAction;
using Mpls::LfibViaType;
using Mpls::TableId;
using OvixAgent::inQuotes;

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw UsageError(what);
}

/// A via in the making: a pop unless its words say otherwise.
struct Hop {
    MplsLabelAction action = MplsLabelAction::pop;
    std::vector<Lumo::MplsLabel> labels;
    Mpls::ViaOptions options;
    std::uint64_t fec = 0;
    std::uint32_t weight = 1;
};

/// Takes the words of a route one by one.
class Parser {
  public:
    explicit Parser(std::span<const std::string> words) : rest_(words) {
        if (!rest_.empty() && lfibNamed(rest_.front())) {
            takeTable();
        }
        name_.label = parseLabel(next("a label"));
    }

    ParsedRoute parse();
    RouteName parseName();

    struct Word {
        std::string_view word;
        void (Parser::*take)();
    };
    static const std::array<Word, 11> all;

  private:
    static std::optional<TableId> lfibNamed(std::string_view word) noexcept {
        const auto table = Tessel::valueOf<TableId>(word);
        return table && Mpls::isLfib(*table) ? table : std::nullopt;
    }

    const std::string& next(std::string_view what);
    void takeWord(const std::string& word);
    void takeTable();
    void takeMulticast() { parsed_.route.setType = Mpls::LfibViaSetType::multicast; }
    void takeType() { type_ = parseWord<LfibViaType>(next("a type"), "type"); }
    void takeTail();
    void takeNexthop();
    void takeSwap();
    void takePush();
    void takeLabels(MplsLabelAction action);
    void takeAddress();
    void takeInterface() { hop().options.intf = nextInterface(hop().options.intf); }
    void takeWeight();
    void takeFec() { hop().fec = parseNumber(next("a fec"), "fec", 1, Mpls::Via::maxFec); }
    Lumo::IntfId nextInterface(Lumo::IntfId given);

    Hop& hop() { return hop_ ? *hop_ : hop_.emplace(); }
    void finishHop();
    void finishRoute();
    void checkEnd() const;

    std::span<const std::string> rest_;
    RouteName name_;
    ParsedRoute parsed_;
    std::optional<Hop> hop_;
    std::optional<LfibViaType> type_;
    bool hasTable_ = false;
    bool hasNexthop_ = false;
};

constexpr std::array<Parser::Word, 11> Parser::all{{
    {"table", &Parser::takeTable},
    {"multicast", &Parser::takeMulticast},
    {"type", &Parser::takeType},
    {"tail", &Parser::takeTail},
    {"nexthop", &Parser::takeNexthop},
    {"as", &Parser::takeSwap},
    {"push", &Parser::takePush},
    {"via", &Parser::takeAddress},
    {"dev", &Parser::takeInterface},
    {"weight", &Parser::takeWeight},
    {"fec", &Parser::takeFec},
}};

} // namespace

std::vector<std::string_view> routeWords() {
    std::vector<std::string_view> words;
    for (const Parser::Word& known : Parser::all) {
        words.push_back(known.word);
    }
    for (const ViaAttribute& attribute : viaAttributes()) {
        words.push_back(attribute.word);
    }
    return words;
}

namespace {

const std::string& Parser::next(std::string_view what) {
    if (rest_.empty()) {
        fail(fmt::format("{} is missing at the end", what));
    }
    const std::string& word = rest_.front();
    rest_ = rest_.subspan(1);
    return word;
}

ParsedRoute Parser::parse() {
    while (!rest_.empty()) {
        takeWord(next(""));
    }
    finishHop();
    finishRoute();
    return std::move(parsed_);
}

RouteName Parser::parseName() {
    while (!rest_.empty()) {
        const std::string& word = next("");
        if (word != "table") {
            fail(fmt::format("{} is not expected here; known: table", inQuotes(word)));
        }
        takeTable();
    }
    return name_;
}

void Parser::takeWord(const std::string& word) {
    for (const Word& known : all) {
        if (known.word == word) {
            return (this->*known.take)();
        }
    }
    for (const ViaAttribute& attribute : viaAttributes()) {
        if (attribute.word == word) {
            static const std::string none;
            const bool hasValue = !attribute.value.empty();
            return attribute.take(hop().options, attribute.word,
                                  hasValue ? next(fmt::format("the value of {}", word)) : none);
        }
    }
    fail(fmt::format("{} is not expected here{}", inQuotes(word),
                     OvixAgent::suggestion(word, routeWords())));
}

void Parser::takeTable() {
    const std::string& word = next("the name of a table");
    const auto table = lfibNamed(word);
    if (!table) {
        fail(fmt::format("there is no table {}{}", inQuotes(word),
                         OvixAgent::suggestion(word, lfibWords())));
    }
    name_.table = *table;
    hasTable_ = true;
}

void Parser::takeTail() {
    Lumo::IntfId intf;
    if (!rest_.empty() && rest_.front() == "vlan") {
        next("");
        const auto vlan = parseNumber(next("a VLAN"), "vlan", 1, Mpls::Via::maxVlan);
        intf = Lumo::VlanIntfId::vlanIdToIntfId(static_cast<std::uint16_t>(vlan));
    } else if (!rest_.empty() && rest_.front() == "dev") {
        next("");
        intf = nextInterface({});
    }
    parsed_.route.tail = Mpls::LfibMulticastIpLookupVia::toward(intf);
    takeMulticast();
}

void Parser::takeNexthop() {
    if (hop_ && !hasNexthop_) {
        fail("\"nexthop\" comes before the words of its hop");
    }
    finishHop();
    hasNexthop_ = true;
    hop_.emplace();
}

void Parser::takeSwap() {
    if (!rest_.empty() && rest_.front() == "to") {
        next("");
    }
    takeLabels(MplsLabelAction::swap);
}

void Parser::takePush() {
    takeLabels(MplsLabelAction::push);
}

void Parser::takeLabels(MplsLabelAction action) {
    if (!hop().labels.empty()) {
        fail("the labels of a hop are given twice");
    }
    hop().labels = parseLabels(next("a label stack"));
    hop().action = action;
}

void Parser::takeAddress() {
    if (hop().options.nexthop.family() != Lumo::IpFamily::none) {
        fail("the address of a hop is given twice");
    }
    const std::string& word = next("an address");
    const bool isFamily = word == "inet" || word == "inet6";
    hop().options.nexthop =
        isFamily ? parseAddress(next("an address"), word) : parseAddress(word, "");
}

Lumo::IntfId Parser::nextInterface(Lumo::IntfId given) {
    if (!given.empty()) {
        fail("the interface of a hop is given twice");
    }
    const std::string& word = next("an interface");
    const Lumo::IntfId intf = parseInterface(word);
    if (intf == Lumo::IntfId(word)) {
        parsed_.interfaces.push_back(word);
    }
    return intf;
}

void Parser::takeWeight() {
    hop().weight = static_cast<std::uint32_t>(
        parseNumber(next("a weight"), "weight", 0, std::numeric_limits<std::uint32_t>::max()));
}

Tessel::Result<Mpls::Via> viaOf(const Hop& hop) {
    using Mpls::Via;
    const MplsLabelAction action = hop.action;
    const std::vector<Lumo::MplsLabel>& labels = hop.labels;
    Mpls::ViaOptions options = hop.options;
    if (hop.fec != 0) {
        return Via::towardFec(hop.fec, action, labels, options);
    }
    const bool leadsOut = !options.intf.empty() || options.nexthop.family() != Lumo::IpFamily::none;
    if (action == MplsLabelAction::pop && !options.vrf.empty() && !leadsOut) {
        Mpls::ViaOptions lookUp;
        lookUp.vrf = options.vrf;
        lookUp.payload = options.payload;
        if (options != lookUp) {
            return Tessel::Refused{"a look-up in a VRF takes payload only"};
        }
        return Via::popAndLookUp(options.vrf, options.payload);
    }
    if (options.vrf.view() == L3::defaultVrf) {
        options.vrf = L3::VrfName();
    }
    switch (action) {
    case MplsLabelAction::swap:
        return Via::swap(labels, options);
    case MplsLabelAction::push:
        return Via::push(labels, options);
    default:
        return Via::pop(options);
    }
}

void Parser::finishHop() {
    if (!hop_) {
        return;
    }
    auto& vias = parsed_.route.vias;
    const auto via = viaOf(*hop_);
    if (!via) {
        fail(fmt::format("hop {}: {}", vias.size() + 1, via.refused().what));
    }
    vias.push_back({via.value(), hop_->weight});
    hop_.reset();
}

void Parser::finishRoute() {
    Mpls::LabelRoute& route = parsed_.route;
    if (route.vias.empty() && !route.tail) {
        fail("a route needs via, dev, fec, vrf, nexthop or tail");
    }
    const bool endsHere = route.isLookUp() || route.tail;
    if (endsHere && !hasTable_) {
        name_.table = TableId::decapLfib;
    }
    route.label = name_.label;
    route.table = name_.table;
    route.viaType = type_.value_or(route.usualViaType());
    if (route.tail.has_value() != (route.viaType == LfibViaType::multicastIpLookup)) {
        fail("type multicast-ip-lookup goes with tail");
    }
    if (route.leadsToFec() && route.viaType != LfibViaType::externalFec) {
        fail("fec goes with type external-fec");
    }
    if (endsHere) {
        checkEnd();
    }
}

void Parser::checkEnd() const {
    const Mpls::LabelRoute& route = parsed_.route;
    assert(route.tail || route.isLookUp());
    if (route.table == TableId::transitLfib) {
        fail(fmt::format("a route with {} ends here and cannot be in table transit",
                         route.tail ? "tail" : "vrf"));
    }
    if (!route.tail && (route.isMulticast() || route.vias.front().weight != 1)) {
        fail("a look-up in a VRF has neither weight nor multicast");
    }
}

} // namespace

Tessel::Result<ParsedRoute> parseRoute(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parse(); });
}

Tessel::Result<RouteName> parseRouteName(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parseName(); });
}

} // namespace OvixCtl
