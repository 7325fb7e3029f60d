#include "route/RouteRequest.h"

#include <fmt/format.h>
#include <limits>
#include <optional>
#include <span>

#include "Config/ConfigPorts.h"
#include "Config/ConfigText.h"
#include "route/EntryTable.h"
#include "route/RouteWords.h"

namespace OvixCtl {

using OvixAgent::inQuotes;
using OvixAgent::ViaConfig;

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw UsageError(what);
}

/// Takes the words of a route one by one.
class Parser {
  public:
    explicit Parser(std::span<const std::string> words) : rest_(words) {
        request_.route.label = parseLabel(next("a label"));
    }

    RouteRequest parse() {
        while (!rest_.empty()) {
            const std::string word = next("");
            if (!takeRouteWord(word) && !takeHopWord(word)) {
                fail(fmt::format("{} is not expected here{}", inQuotes(word), suggested(word)));
            }
        }
        finishHop();
        if (request_.route.vias.empty()) {
            fail("a route needs via, dev, nexthop or vrf");
        }
        if (isLookup() && !tableTold_) {
            request_.table = Mpls::TableId::decapLfib;
        }
        if (isLookup() && request_.table == Mpls::TableId::transitLfib) {
            fail("a route with vrf ends here, and is none of table transit");
        }
        return std::move(request_);
    }

    RouteRequest parseKey() {
        while (!rest_.empty()) {
            const std::string word = next("");
            if (word != "table") {
                fail(fmt::format("{} is not expected here; known: table", inQuotes(word)));
            }
            takeTable();
        }
        return std::move(request_);
    }

  private:
    static std::string suggested(const std::string& word) {
        static constexpr std::string_view known[]{"table",  "as",      "push", "via",    "dev",
                                                  "weight", "nexthop", "vrf",  "payload"};
        return OvixAgent::suggestion(word, known);
    }

    const std::string& next(std::string_view what) {
        if (rest_.empty()) {
            fail(fmt::format("{} is missing at the end", what));
        }
        const std::string& word = rest_.front();
        rest_ = rest_.subspan(1);
        return word;
    }

    bool takeRouteWord(const std::string& word) {
        if (word == "table") {
            takeTable();
        } else if (word == "nexthop") {
            if (hop_ && !severalHops_) {
                fail("\"nexthop\" comes before the words of its hop");
            }
            finishHop();
            severalHops_ = true;
            hop_.emplace();
        } else if (word == "vrf") {
            takeVrf();
        } else if (word == "payload") {
            takePayload();
        } else {
            return false;
        }
        return true;
    }

    bool takeHopWord(const std::string& word) {
        if (word == "as" || word == "push") {
            takeLabels(word);
        } else if (word == "via") {
            takeAddress();
        } else if (word == "dev") {
            takeInterface();
        } else if (word == "weight") {
            hop().weight =
                parseNumber(next("a weight"), "weight", std::numeric_limits<std::uint32_t>::max());
        } else {
            return false;
        }
        return true;
    }

    void takeTable() {
        const std::string& name = next("the name of a table");
        const auto table = lfibNamed(name);
        if (!table) {
            fail(fmt::format("there is no table {}{}", inQuotes(name),
                             OvixAgent::suggestion(name, OvixAgent::lfibTableNames)));
        }
        request_.table = *table;
        tableTold_ = true;
    }

    void takeVrf() {
        const std::string& name = next("the name of a VRF");
        if (name.empty() || name.size() > OvixAgent::maxVrfNameSize) {
            fail(fmt::format("the name of a VRF is 1 to {} bytes", OvixAgent::maxVrfNameSize));
        }
        request_.route.type = OvixAgent::ViaTypes::ipLookup;
        hop().vrf = name;
    }

    void takePayload() {
        const std::string& word = next("a payload");
        if (word != "ipv4" && word != "ipv6" && word != "auto") {
            fail(fmt::format("payload {} is not ipv4, ipv6 or auto", inQuotes(word)));
        }
        payloadTold_ = true;
        hop().payload = word == "ipv4"   ? OvixAgent::PayloadType::ipv4
                        : word == "ipv6" ? OvixAgent::PayloadType::ipv6
                                         : OvixAgent::PayloadType::automatic;
    }

    void takeLabels(const std::string& word) {
        if (!hop().labels.empty()) {
            fail("the labels of a hop are given twice");
        }
        std::string labels = next("a label stack");
        if (word == "as" && labels == "to") {
            labels = next("a label stack");
        }
        hop().action = word == "as" ? OvixAgent::ViaAction::swap : OvixAgent::ViaAction::push;
        hop().labels = parseLabels(labels);
    }

    void takeAddress() {
        if (hop().nexthop) {
            fail("the address of a hop is given twice");
        }
        const std::string& word = next("an address");
        const bool hasFamily = word == "inet" || word == "inet6";
        hop().nexthop = hasFamily ? parseAddress(next("an address"), word) : parseAddress(word, "");
    }

    void takeInterface() {
        if (hop().port) {
            fail("the interface of a hop is given twice");
        }
        const std::string& name = next("an interface");
        if (name.empty() || name.size() > 15) {
            fail(fmt::format("the name of an interface is 1 to 15 bytes, not {}", inQuotes(name)));
        }
        hop().port = static_cast<OvixAgent::PortIndex>(request_.interfaces.ports.size());
        request_.interfaces.ports.emplace_back().name = name;
    }

    bool isLookup() const { return request_.route.type == OvixAgent::ViaTypes::ipLookup; }

    ViaConfig& hop() {
        if (!hop_) {
            hop_.emplace();
        }
        return *hop_;
    }

    void finishHop() {
        if (hop_ && isLookup() &&
            (hop_->port || hop_->nexthop || !hop_->labels.empty() || severalHops_ ||
             hop_->weight != 1)) {
            fail("a route with vrf has no hops");
        }
        if (payloadTold_ && !isLookup()) {
            fail("payload goes with vrf");
        }
        if (hop_ && !isLookup() && !hop_->port && !hop_->nexthop) {
            fail("a hop leads nowhere: via or dev is needed");
        }
        if (hop_) {
            request_.route.vias.push_back(*hop_);
        }
    }

    std::span<const std::string> rest_;
    RouteRequest request_;
    std::optional<ViaConfig> hop_;
    bool tableTold_ = false;
    bool severalHops_ = false;
    bool payloadTold_ = false;
};

} // namespace

Tessel::Result<RouteRequest> parseRoute(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parse(); });
}

Tessel::Result<RouteRequest> parseRouteKey(const std::vector<std::string>& words) {
    return readWords([&] { return Parser(words).parseKey(); });
}

} // namespace OvixCtl
