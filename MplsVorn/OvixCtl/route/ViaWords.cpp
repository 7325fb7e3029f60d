#include "route/ViaWords.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <fmt/format.h>
#include <limits>

namespace OvixCtl {

using Lumo::MplsLabelAction;
using Mpls::Via;
using Mpls::ViaOptions;

namespace {

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
        {"entropy", "",
         [](const ViaOptions& options) { return options.entropy ? Text("") : Text(); },
         [](ViaOptions& options, std::string_view, const std::string&) { options.entropy = true; }},
    };
    return all;
}

constexpr std::array<ViaDraft::Word, 6> ViaDraft::own{{
    {"as", &ViaDraft::takeSwap},
    {"push", &ViaDraft::takePush},
    {"via", &ViaDraft::takeAddress},
    {"dev", &ViaDraft::takeInterface},
    {"weight", &ViaDraft::takeWeight},
    {"fec", &ViaDraft::takeFec},
}};

std::vector<std::string_view> ViaDraft::words() {
    std::vector<std::string_view> all;
    for (const Word& known : own) {
        all.push_back(known.word);
    }
    for (const ViaAttribute& attribute : viaAttributes()) {
        all.push_back(attribute.word);
    }
    return all;
}

bool ViaDraft::take(const std::string& word, Words& behind) {
    for (const Word& known : own) {
        if (known.word == word) {
            once(given_, known.word);
            (this->*known.take)(behind);
            return true;
        }
    }
    for (const ViaAttribute& attribute : viaAttributes()) {
        if (attribute.word == word) {
            once(given_, attribute.word);
            attribute.take(options_, attribute.word,
                           attribute.value.empty()
                               ? std::string()
                               : behind.next(fmt::format("the value of {}", word)));
            return true;
        }
    }
    return false;
}

void ViaDraft::takeSwap(Words& behind) {
    behind.nextIs("to");
    takeLabels(MplsLabelAction::swap, behind);
}

void ViaDraft::takePush(Words& behind) {
    takeLabels(MplsLabelAction::push, behind);
}

void ViaDraft::takeLabels(MplsLabelAction action, Words& behind) {
    if (!labels_.empty()) {
        throw UsageError("a via has either \"as\" or \"push\"");
    }
    labels_ = parseLabels(behind.next("a label stack"));
    action_ = action;
}

void ViaDraft::takeAddress(Words& behind) {
    const std::string& word = behind.next("an address");
    const bool isFamily = word == "inet" || word == "inet6";
    options_.nexthop =
        isFamily ? parseAddress(behind.next("an address"), word) : parseAddress(word, "");
}

void ViaDraft::takeWeight(Words& behind) {
    weight_ = static_cast<std::uint32_t>(parseNumber(behind.next("a weight"), "weight", 0,
                                                     std::numeric_limits<std::uint32_t>::max()));
}

void ViaDraft::takeFec(Words& behind) {
    fec_ = parseNumber(behind.next("a fec"), "fec", 1, Via::maxFec);
}

Tessel::Result<Via> ViaDraft::via() const {
    ViaOptions options = options_;
    if (fec_ != 0) {
        return Via::towardFec(fec_, action_, labels_, options);
    }
    const bool leadsOut = !options.intf.empty() || options.nexthop.family() != Lumo::IpFamily::none;
    if (action_ == MplsLabelAction::pop && !options.vrf.empty() && !leadsOut) {
        // Even what is as usual, such as ttl uniform: a lookup has its own (the pipe model).
        const bool hasMore = std::any_of(given_.begin(), given_.end(), [](std::string_view word) {
            return word != "vrf" && word != "payload" && word != "weight";
        });
        if (hasMore) {
            return Tessel::Refused{"a lookup in a VRF takes payload only"};
        }
        return Via::popAndLookUp(options.vrf, options.payload);
    }
    if (options.payload == Mpls::PayloadType::ethernet && given_.contains("ttl")) {
        return Tessel::Refused{"ttl goes with a packet, and an Ethernet frame has none"};
    }
    if (options.vrf.view() == L3::defaultVrf) {
        options.vrf = L3::VrfName();
    }
    assert((action_ == MplsLabelAction::pop) == labels_.empty());
    switch (action_) {
    case MplsLabelAction::swap:
        return Via::swap(labels_, options);
    case MplsLabelAction::push:
        return Via::push(labels_, options);
    default:
        return Via::pop(options);
    }
}

Tessel::Result<Mpls::WeightedVia> ViaDraft::made() const {
    const auto one = via();
    return one ? Tessel::Result<Mpls::WeightedVia>({one.value(), weight_}) : one.refused();
}

} // namespace OvixCtl
