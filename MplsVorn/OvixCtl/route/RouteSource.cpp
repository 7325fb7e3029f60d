#include "route/RouteSource.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fmt/format.h>

#include "Config/Config.h"

namespace OvixCtl {

using Mpls::TableId;
using Tessel::Refused;
using Tessel::Result;

namespace {

/// A route that waits for one of another owner is shown behind "# waits for OWNER: "; it is a route
/// all the same. Other lines come back as they are.
std::string_view withoutWaiting(std::string_view line) {
    constexpr std::string_view waits = "# waits for ";
    const std::size_t colon = line.find(": ");
    return line.starts_with(waits) && colon != line.npos ? line.substr(colon + 2) : line;
}

/// Cuts a line at blanks, into strings that keep their memory. One that begins with "#" is a
/// comment; behind that, names may.
void cut(std::string_view line, std::vector<std::string>& words) {
    std::size_t count = 0;
    for (std::size_t from = 0; (from = line.find_first_not_of(" \t\r", from)) != line.npos;) {
        const std::size_t to = std::min(line.find_first_of(" \t\r", from), line.size());
        if (count == 0 && line[from] == '#') {
            break;
        }
        if (count == words.size()) {
            words.emplace_back();
        }
        words[count++].assign(line.substr(from, to - from));
        from = to;
    }
    words.resize(count);
}

std::string textOf(const Entry& entry) {
    return fmt::format("{} {} in table {}", nounOf(entry.table), entry.key,
                       Tessel::wordOf(entry.table));
}

std::string standardInput() {
    std::string text;
    std::array<char, 65536> piece;
    while (const std::size_t got = std::fread(piece.data(), 1, piece.size(), stdin)) {
        text.append(piece.data(), got);
    }
    return text;
}

/// Reads one text, of either kind.
class Reading {
  public:
    Reading(std::string name, const std::string& text, const RouteSource::Take& take,
            const RouteSource::TakeInterface& interface)
        : name_(std::move(name)), text_(&text), take_(&take), interface_(&interface) {}

    /// What it is shows in the first line that says something; an empty text is a configuration,
    /// whose reader says what is missing.
    Result<void> all() {
        while (nextLine()) {
            if (!words_.empty()) {
                return isYaml() ? configuration() : lines();
            }
        }
        return configuration();
    }

  private:
    bool nextLine() {
        if (at_ == text_->size()) {
            return false;
        }
        const std::size_t end = std::min(text_->find('\n', at_), text_->size());
        cut(withoutWaiting(std::string_view(*text_).substr(at_, end - at_)), words_);
        at_ = std::min(end + 1, text_->size());
        ++line_;
        return true;
    }
    bool isYaml() const {
        const std::string& first = words_.front();
        return first.find(':') != first.npos || first.find_first_of("{-%") == 0;
    }
    Refused refused(std::size_t line, const std::string& what) const {
        return {fmt::format("{}:{}: {}", name_, line, what)};
    }
    Result<void> put(const Entry& entry, std::size_t line) const {
        auto done = (*take_)(entry, static_cast<double>(at_) / static_cast<double>(text_->size()));
        return done ? done : refused(line, textOf(entry) + ": " + done.refused().what);
    }
    Result<void> configuration() const;
    Result<void> putHardware(const OvixAgent::HardwareConfig& hardware) const;
    Result<void> lines();
    Result<void> putLine() const;

    std::string name_;
    const std::string* text_;
    const RouteSource::Take* take_;
    const RouteSource::TakeInterface* interface_;
    std::size_t at_ = 0;
    std::size_t line_ = 0;
    std::vector<std::string> words_; ///< of the line
};

Result<void> Reading::configuration() const {
    const auto config = OvixAgent::parseConfig(*text_, name_);
    if (!config) {
        return config.refused();
    }
    for (const OvixAgent::PortConfig& port : config.value().ports) {
        (*interface_)(port.name);
    }
    for (const auto& [route, line] : config.value().labelRoutes) {
        if (auto done = put({route.table, route.label.value(), route, {}}, line); !done) {
            return done;
        }
    }
    for (const auto& [vpn, line] : config.value().mvpn) {
        if (auto done = put({TableId::mvpnIntfStatus, vpn.vrfId.value, vpn, {}}, line); !done) {
            return done;
        }
    }
    return putHardware(config.value().hardware);
}

Result<void> Reading::putHardware(const OvixAgent::HardwareConfig& hardware) const {
    for (const auto& [adjacency, line] : hardware.adjacencies) {
        const auto id = static_cast<std::uint32_t>(adjacency.id);
        const Entry entry{TableId::hardwareAdjacencies, id, adjacency.content, {}};
        if (auto done = put(entry, line); !done) {
            return done;
        }
    }
    for (const auto& [route, line] : hardware.routes) {
        const std::uint32_t label = route.routeKey.topLabel().value();
        if (auto done = put({TableId::hardwareRoutes, label, route, {}}, line); !done) {
            return done;
        }
    }
    return {};
}

Result<void> Reading::lines() {
    do {
        if (words_.empty()) {
            continue;
        }
        if (auto done = putLine(); !done) {
            return done;
        }
    } while (nextLine());
    return {};
}

Result<void> Reading::putLine() const {
    const Result<ParsedEntry> parsed = parseEntry(words_);
    if (!parsed) {
        return refused(line_, parsed.refused().what);
    }
    const Entry& entry = parsed.value().entry;
    if (Mpls::isLfib(entry.table) || entry.table == TableId::hardwareRoutes) {
        if (const auto legal = Mpls::checkRouteLabel(Lumo::MplsLabel(entry.key)); !legal) {
            return refused(line_, legal.refused().what);
        }
    }
    for (const std::string& interface : parsed.value().interfaces) {
        (*interface_)(interface);
    }
    return put(entry, line_);
}

} // namespace

Result<RouteSource> RouteSource::open(const std::string& file) {
    if (file == "-") {
        return RouteSource("standard input", standardInput());
    }
    auto text = OvixAgent::readFile(file);
    return text ? Result<RouteSource>(RouteSource(file, std::move(text).value()))
                : Result<RouteSource>(text.refused());
}

Result<void> RouteSource::read(const Take& take, const TakeInterface& interface) const {
    return Reading(name_, text_, take, interface).all();
}

} // namespace OvixCtl
