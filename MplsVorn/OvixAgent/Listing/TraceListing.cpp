#include <charconv>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "Listing/Listings.h"
#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using TraceJson = nlohmann::json;

/// Unset for what is none.
std::optional<Lumo::IpGenPrefix> prefixOfText(const std::string& text) {
    const std::size_t slash = text.find('/');
    const auto address = Lumo::IpGenAddr::fromText(text.substr(0, slash));
    if (address.family() == Lumo::IpFamily::none) {
        return std::nullopt;
    }
    unsigned length = address.bits();
    if (slash != std::string::npos) {
        const char* const end = text.data() + text.size();
        const auto read = std::from_chars(text.data() + slash + 1, end, length);
        if (read.ec != std::errc() || read.ptr != end || length > address.bits()) {
            return std::nullopt;
        }
    }
    return Lumo::IpGenPrefix::of(address, static_cast<std::uint8_t>(length));
}

std::optional<PortIndex> portOfName(const PortTable& ports, const std::string& name) {
    for (PortIndex port = 0; port < ports.ports().size(); ++port) {
        if (ports.ports()[port].name == name) {
            return port;
        }
    }
    return std::nullopt;
}

/// The number of a member; `otherwise` when there is none.
Tessel::Result<std::uint64_t> numberIn(const TraceJson& json, const char* member,
                                       std::uint64_t otherwise, std::uint64_t least,
                                       std::uint64_t most) {
    const auto found = json.find(member);
    if (found == json.end()) {
        return otherwise;
    }
    const bool isNumber = found->is_number_unsigned() && found->get<std::uint64_t>() >= least &&
                          found->get<std::uint64_t>() <= most;
    if (!isNumber) {
        return Tessel::Refused{
            fmt::format("{} {}: it is a number from {} to {}", member, found->dump(), least, most)};
    }
    return found->get<std::uint64_t>();
}

} // namespace

Listing traceListing(const LiveTrace& trace, std::uint64_t after) {
    return [&trace, after, end = trace.end()](std::string& entry) mutable {
        const std::uint64_t first = trace.end() - trace.lines().size();
        after = std::max(after, first);
        if (after >= end) {
            return false;
        }
        entry = dumped(TraceJson(trace.lines()[after++ - first]));
        return true;
    };
}

Tessel::Result<TraceFilter> requestedTrace(const std::string& request, const PortTable& ports) {
    const TraceJson json = TraceJson::parse(request, nullptr, false);
    TraceFilter filter;
    if (const std::string name = requestedText(request, "port"); !name.empty()) {
        filter.port = portOfName(ports, name);
        if (!filter.port) {
            return Tessel::Refused{fmt::format("there is no port \"{}\"", name)};
        }
    }
    if (const std::string text = requestedText(request, "prefix"); !text.empty()) {
        filter.prefix = prefixOfText(text);
        if (!filter.prefix) {
            return Tessel::Refused{fmt::format("\"{}\" is no prefix", text)};
        }
    }
    constexpr std::uint64_t mostFrames = 10'000;
    constexpr std::uint64_t mostSeconds = 3600;
    constexpr std::uint64_t unset = ~std::uint64_t{0};
    const auto label = numberIn(json, "label", unset, 0, Lumo::MplsLabel::max);
    const auto limit = numberIn(json, "limit", filter.limit, 1, mostFrames);
    const auto seconds = numberIn(json, "seconds", 60, 1, mostSeconds);
    for (const auto* const number : {&label, &limit, &seconds}) {
        if (!*number) {
            return number->refused();
        }
    }
    if (label.value() != unset) {
        filter.label = static_cast<std::uint32_t>(label.value());
    }
    filter.limit = limit.value();
    filter.time = std::chrono::seconds(seconds.value());
    filter.reason = requestedText(request, "reason");
    return filter;
}

} // namespace OvixAgent
