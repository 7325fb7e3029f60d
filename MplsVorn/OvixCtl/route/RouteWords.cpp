#include "route/RouteWords.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>

#include "Config/ConfigText.h"

namespace OvixCtl {

using Mpls::ViaOptions;
using OvixAgent::inQuotes;

namespace {

constexpr std::size_t maxInterfaceName = 15;
constexpr std::size_t interfaceIdSize = 18; ///< "0x" and 16 digits: longer than any name

using Text = std::optional<std::string>;

template <class Number>
Text unless(Number usual, Number value) {
    return value == usual ? Text() : fmt::format("{}", value);
}
template <class Value>
Text wordUnless(Value usual, Value value) {
    return value == usual ? Text() : Tessel::textOf(value);
}
template <class Value>
std::string choice() {
    return fmt::format("{}", fmt::join(Tessel::wordList<Value>(), "|"));
}

/// A row for a number of `min` to `max`; 0 means unset.
template <auto Member, std::uint64_t Min, std::uint64_t Max>
ViaAttribute numberAttribute(std::string_view word) {
    return {word, "N",
            [](const ViaOptions& options) { return unless<std::uint64_t>(0, options.*Member); },
            [](ViaOptions& options, std::string_view noun, const std::string& value) {
                using Number = std::remove_reference_t<decltype(options.*Member)>;
                options.*Member = static_cast<Number>(parseNumber(value, noun, Min, Max));
            }};
}

template <auto Member, class Value>
ViaAttribute wordAttribute(std::string_view word) {
    return {
        word, choice<Value>(),
        [](const ViaOptions& options) { return wordUnless(ViaOptions().*Member, options.*Member); },
        [](ViaOptions& options, std::string_view noun, const std::string& value) {
            options.*Member = parseWord<Value>(value, noun);
        }};
}

} // namespace

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
            throw UsageError("label 3 (implicit null) never stands in a frame; leave out \"as\" to "
                             "pop");
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
    if (word.empty() || word.size() > maxInterfaceName) {
        throw UsageError(fmt::format("the name of an interface is 1 to {} bytes, not {}",
                                     maxInterfaceName, inQuotes(word)));
    }
    return Lumo::IntfId(word);
}

L3::VrfName parseVrf(const std::string& word) {
    if (word.empty() || word.size() > L3::VrfName::maxSize) {
        throw UsageError(
            fmt::format("the name of a VRF is 1 to {} bytes", std::size_t{L3::VrfName::maxSize}));
    }
    return L3::VrfName(std::string_view(word));
}

void refuseWord(const std::string& word, std::string_view noun,
                std::span<const std::string_view> known) {
    throw UsageError(fmt::format("{} {} is unknown{}", noun, inQuotes(word),
                                 OvixAgent::suggestion(word, known)));
}

namespace {

Text classText(std::optional<std::uint8_t> tc) {
    return tc ? fmt::format("{}", *tc) : Text();
}

std::optional<std::uint8_t> parseClass(const std::string& word, std::string_view noun) {
    return static_cast<std::uint8_t>(parseNumber(word, noun, 0, 7));
}

} // namespace

const std::vector<ViaAttribute>& viaAttributes() {
    static const std::vector<ViaAttribute> all{
        wordAttribute<&ViaOptions::ttl, Mpls::TtlMode>("ttl"),
        {"tc", "0|1|2|3|4|5|6|7|uniform",
         [](const ViaOptions& options) {
             return options.tcUniform ? Text("uniform") : classText(options.tc);
         },
         [](ViaOptions& options, std::string_view noun, const std::string& value) {
             options.tcUniform = value == "uniform";
             options.tc = options.tcUniform ? std::nullopt : parseClass(value, noun);
         }},
        {"push-tc", "N", [](const ViaOptions& options) { return classText(options.pushTc); },
         [](ViaOptions& options, std::string_view noun, const std::string& value) {
             options.pushTc = parseClass(value, noun);
         }},
        numberAttribute<&ViaOptions::pushTtl, 1, 255>("push-ttl"),
        wordAttribute<&ViaOptions::payload, Mpls::PayloadType>("payload"),
        numberAttribute<&ViaOptions::mtu, Mpls::Via::minMtu, Mpls::Via::maxMtu>("mtu"),
        numberAttribute<&ViaOptions::vlan, 1, Mpls::Via::maxVlan>("vlan"),
        {"vrf", "NAME",
         [](const ViaOptions& options) {
             return options.vrf.empty() ? Text() : std::string(options.vrf.view());
         },
         [](ViaOptions& options, std::string_view, const std::string& value) {
             options.vrf = parseVrf(value);
         }},
        {"control-word", "",
         [](const ViaOptions& options) { return options.controlWord ? Text("") : Text(); },
         [](ViaOptions& options, std::string_view, const std::string&) {
             options.controlWord = true;
         }},
        {"entropy", "",
         [](const ViaOptions& options) { return options.entropy ? Text("") : Text(); },
         [](ViaOptions& options, std::string_view, const std::string&) { options.entropy = true; }},
    };
    return all;
}

} // namespace OvixCtl
