#include "route/RouteWords.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <limits>

#include "Config/ConfigText.h"

namespace OvixCtl {

using OvixAgent::inQuotes;

namespace {

constexpr std::size_t maxInterfaceName = 15;
constexpr std::size_t interfaceIdSize = 18; ///< "0x" and 16 digits: longer than any name

void checkName(const std::string& word, std::string_view noun, std::size_t most) {
    if (word.empty() || word.size() > most || !isPlain(word)) {
        throw UsageError(fmt::format("the name of {} is 1 to {} bytes without blanks, not {}", noun,
                                     most, inQuotes(word)));
    }
}

} // namespace

bool isNumber(std::string_view word) noexcept {
    return !word.empty() && word.find_first_not_of("0123456789") == word.npos;
}

bool isPlain(std::string_view name) noexcept {
    return std::none_of(name.begin(), name.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= ' ' || byte == 0x7f;
    });
}

std::uint64_t parseNumber(const std::string& word, std::string_view noun, std::uint64_t min,
                          std::uint64_t max) {
    std::uint64_t number = 0;
    const char* const end = word.data() + word.size();
    const auto result = std::from_chars(word.data(), end, number);
    if (result.ec == std::errc::invalid_argument || result.ptr != end) {
        throw UsageError(fmt::format("{} {} is not a number", noun, inQuotes(word)));
    }
    if (result.ec != std::errc() || number < min || number > max) {
        throw UsageError(fmt::format("{} {} is out of range ({}..{})", noun, word, min, max));
    }
    return number;
}

Lumo::MplsLabel parseLabel(const std::string& word) {
    return Lumo::MplsLabel(
        static_cast<std::uint32_t>(parseNumber(word, "label", 0, Lumo::MplsLabel::max)));
}

std::vector<Lumo::MplsLabel> parseLabels(const std::string& word) {
    std::vector<Lumo::MplsLabel> labels;
    for (std::size_t from = 0; from <= word.size();) {
        const std::size_t to = std::min(word.find('/', from), word.size());
        labels.push_back(parseLabel(word.substr(from, to - from)));
        if (labels.back() == Lumo::implicitNull) {
            throw UsageError("label 3 (implicit null) never stands in a frame (RFC 3032 section "
                             "2.1); leave out \"as\" to pop");
        }
        from = to + 1;
    }
    return labels;
}

Lumo::IpGenAddr parseAddress(const std::string& word, std::string_view family) {
    const auto address = Lumo::IpGenAddr::fromText(word);
    const bool isFamily = family == "inet"    ? address.family() == Lumo::IpFamily::ipv4
                          : family == "inet6" ? address.family() == Lumo::IpFamily::ipv6
                                              : address.family() != Lumo::IpFamily::none;
    if (!isFamily) {
        throw UsageError(fmt::format("{} is not an {} address", inQuotes(word),
                                     family == "inet"    ? "IPv4"
                                     : family == "inet6" ? "IPv6"
                                                         : "IPv4 or IPv6"));
    }
    return address;
}

Lumo::IntfId parseInterface(const std::string& word) {
    std::uint64_t id = 0;
    const char* const end = word.data() + word.size();
    if (word.size() == interfaceIdSize && word.starts_with("0x") &&
        std::from_chars(word.data() + 2, end, id, 16).ptr == end) {
        return Lumo::IntfId::fromValue(id);
    }
    checkName(word, "an interface", maxInterfaceName);
    return Lumo::IntfId(word);
}

L3::VrfName parseVrf(const std::string& word) {
    checkName(word, "a VRF", L3::VrfName::maxSize);
    return L3::VrfName(std::string_view(word));
}

Mpls::LfibViaType parseType(const std::string& word) {
    constexpr std::uint64_t maxType = 255;
    return isNumber(word) ? Mpls::LfibViaType(parseNumber(word, "type", 0, maxType))
                          : parseWord<Mpls::LfibViaType>(word, "type");
}

Mpls::RouteOwner parseOwner(const std::string& word) {
    constexpr std::uint64_t maxOwner = 255;
    return isNumber(word) ? Mpls::RouteOwner(parseNumber(word, "owner", 0, maxOwner))
                          : parseWord<Mpls::RouteOwner>(word, "owner");
}

Mpls::TableId parseTable(const std::string& word, std::span<const std::string_view> tables) {
    if (std::find(tables.begin(), tables.end(), word) == tables.end()) {
        throw UsageError(fmt::format("there is no table {}{}", inQuotes(word),
                                     OvixAgent::suggestion(word, tables)));
    }
    return *Tessel::valueOf<Mpls::TableId>(word);
}

std::uint32_t parseKey(const std::string& word, Mpls::TableId table) {
    switch (table) {
    case Mpls::TableId::mvpnIntfStatus:
        return static_cast<std::uint32_t>(
            parseNumber(word, "VRF id", 0, std::numeric_limits<std::uint32_t>::max()));
    case Mpls::TableId::hardwareAdjacencies:
        return static_cast<std::uint32_t>(
            parseNumber(word, "adjacency", 0, Tessel::TableLayout::maxKey));
    default:
        return parseLabel(word).value();
    }
}

void refuseWord(const std::string& word, std::string_view noun,
                std::span<const std::string_view> known) {
    throw UsageError(fmt::format("{} {} is unknown{}", noun, inQuotes(word),
                                 OvixAgent::suggestion(word, known)));
}

void once(std::set<std::string_view>& given, std::string_view word) {
    if (!given.insert(word).second) {
        throw UsageError(fmt::format("{} is given twice", inQuotes(word)));
    }
}

const std::string& Words::next(std::string_view what) {
    if (empty()) {
        throw UsageError(fmt::format("{} is missing at the end", what));
    }
    const std::string& word = rest_.front();
    rest_ = rest_.subspan(1);
    return word;
}

bool Words::nextIs(std::string_view word) {
    const bool is = !empty() && rest_.front() == word;
    rest_ = rest_.subspan(is ? 1 : 0);
    return is;
}

Lumo::IntfId Words::nextInterface() {
    const std::string& word = next("an interface");
    const Lumo::IntfId intf = parseInterface(word);
    if (intf == Lumo::IntfId(word)) {
        interfaces_.push_back(word);
    }
    return intf;
}

Lumo::IntfId Words::nextVlan() {
    return Lumo::VlanIntfId::vlanIdToIntfId(
        static_cast<std::uint16_t>(parseNumber(next("a VLAN"), "vlan", 1, Mpls::Via::maxVlan)));
}

} // namespace OvixCtl
