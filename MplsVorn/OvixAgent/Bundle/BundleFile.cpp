// A bundle as bytes.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <system_error>

#include "Bundle/Bundle.h"
#include "Explain/FrameWords.h"
#include "Explain/HeaderWords.h"
#include "Explain/RemedyWords.h"
#include "State/RoadSteps.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

using BundleJson = nlohmann::ordered_json;

constexpr std::string_view firstLine = "ovix bundle 1\n";
/// Of what is read, however long a file is.
constexpr std::size_t mostBundleBytes = std::size_t{4} << 30U;

BundleJson sentAsJson(const std::vector<Walk::Sent>& all) {
    BundleJson list = BundleJson::array();
    for (const Walk::Sent& sent : all) {
        list.push_back(BundleJson{
            {"port", sent.port}, {"length", sent.originalLength}, {"bytes", hexText(sent.bytes)}});
    }
    return list;
}

BundleJson portsAsJson(const AgentConfig& config) {
    BundleJson list = BundleJson::array();
    for (const PortConfig& port : config.ports) {
        list.push_back(BundleJson{{"name", port.name},
                                  {"up", port.isUp},
                                  {"mtu", port.mtu},
                                  {"mac", macText(port.mac)},
                                  {"routesIp", port.routesIp}});
    }
    return list;
}

BundleJson neighboursAsJson(const Situation& situation) {
    BundleJson list = BundleJson::array();
    for (const NeighbourConfig& neighbour : situation.neighbours) {
        list.push_back(BundleJson{{"address", neighbour.address.text()},
                                  {"port", situation.config.ports[neighbour.port].name},
                                  {"mac", macText(neighbour.mac)}});
    }
    return list;
}

BundleJson framesAsJson(const Bundle& bundle) {
    BundleJson list = BundleJson::array();
    for (const BundledFrame& each : bundle.frames) {
        list.push_back(BundleJson{{"port", bundle.situation.config.ports[each.frame.port].name},
                                  {"length", each.frame.originalLength},
                                  {"bytes", hexText(each.frame.bytes)},
                                  {"fate", std::string(Tessel::wordOf(each.outcome.kind))},
                                  {"reason", each.outcome.reason},
                                  {"sent", sentAsJson(each.outcome.sent)}});
    }
    return list;
}

BundleJson asJson(const Bundle& bundle) {
    const Situation& situation = bundle.situation;
    BundleJson all{{"file", situation.file},
                   {"config", situation.config.text ? *situation.config.text : ""},
                   {"tables", situation.tablesName},
                   {"tableBytes", situation.tables ? situation.tables->used().size() : 0},
                   {"live", situation.isLive},
                   {"anyMac", situation.anyMac},
                   {"ports", portsAsJson(situation.config)},
                   {"neighbours", neighboursAsJson(situation)},
                   {"frames", framesAsJson(bundle)}};
    for (const auto& [name, text] : bundle.more) {
        all["more"][name] = BundleJson::parse(text, nullptr, false);
    }
    return all;
}

std::vector<std::uint8_t> bytesOf(const BundleJson& hex) {
    const auto frame = readFrame(hex.get<std::string>(), 0, {});
    if (!frame) {
        throw std::invalid_argument(frame.refused().what);
    }
    return frame.value().bytes;
}

PortIndex portOfBundle(const AgentConfig& config, const BundleJson& name) {
    const PortIndex port = portNamed(config, name.get<std::string>());
    if (port == noPort) {
        throw std::invalid_argument(
            fmt::format("there is no port \"{}\"", name.get<std::string>()));
    }
    return port;
}

Lumo::EthAddr macOfBundle(const BundleJson& text) {
    const auto mac = macFromText(text.get<std::string>());
    if (!mac) {
        throw std::invalid_argument(
            fmt::format("\"{}\" is no MAC address", text.get<std::string>()));
    }
    return *mac;
}

void takePorts(const BundleJson& all, Situation& situation) {
    for (const BundleJson& each : all.at("ports")) {
        PortConfig& port = situation.config.ports[portOfBundle(situation.config, each.at("name"))];
        port.isUp = each.at("up").get<bool>();
        port.mtu = each.at("mtu").get<std::uint32_t>();
        port.mac = macOfBundle(each.at("mac"));
        port.routesIp = each.at("routesIp").get<bool>();
    }
    for (const BundleJson& each : all.at("neighbours")) {
        situation.neighbours.push_back(
            {Lumo::IpGenAddr::fromText(each.at("address").get<std::string>()),
             portOfBundle(situation.config, each.at("port")), macOfBundle(each.at("mac"))});
    }
}

BundledFrame frameOfBundle(const AgentConfig& config, const BundleJson& each) {
    BundledFrame made;
    made.frame.bytes = bytesOf(each.at("bytes"));
    made.frame.originalLength = each.at("length").get<std::uint32_t>();
    made.frame.port = portOfBundle(config, each.at("port"));
    const auto kind = Tessel::valueOf<FateKind>(each.at("fate").get<std::string>());
    if (!kind || made.frame.originalLength < made.frame.bytes.size()) {
        throw std::invalid_argument("a frame of an impossible length or fate");
    }
    made.outcome.kind = *kind;
    made.outcome.reason = each.at("reason").get<std::string>();
    for (const BundleJson& sent : each.at("sent")) {
        made.outcome.sent.push_back({sent.at("port").get<std::string>(), bytesOf(sent.at("bytes")),
                                     sent.at("length").get<std::uint32_t>()});
    }
    return made;
}

/// Throws std::exception for what is not as asJson() makes it.
Bundle bundleOf(const BundleJson& all, std::string_view tables, const std::string& path) {
    Bundle bundle;
    Situation& situation = bundle.situation;
    const auto file = all.at("file").get<std::string>();
    Tessel::Result<AgentConfig> config = parseConfig(all.at("config").get<std::string>(), file);
    if (!config) {
        throw std::invalid_argument(config.refused().what);
    }
    situation.config = std::move(config).value();
    situation.file = file;
    situation.tablesName = all.at("tables").get<std::string>();
    situation.isLive = all.at("live").get<bool>();
    situation.anyMac = all.at("anyMac").get<bool>();
    takePorts(all, situation);
    if (all.at("tableBytes").get<std::uint64_t>() != tables.size()) {
        throw std::invalid_argument("it is cut short, or has more than it says");
    }
    if (!tables.empty()) {
        const std::span<const char> bytes(tables.data(), tables.size());
        situation.tables = std::make_shared<const Tessel::TableCopy>(
            Tessel::TableCopy::ofBytes(path, std::as_bytes(bytes)));
    }
    for (const BundleJson& each : all.at("frames")) {
        bundle.frames.push_back(frameOfBundle(situation.config, each));
    }
    return bundle;
}

} // namespace

void writeBundle(const std::string& path, const Bundle& bundle) {
    errno = 0;
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << firstLine << asJson(bundle).dump(-1, ' ', false, BundleJson::error_handler_t::replace)
         << '\n';
    if (bundle.situation.tables) {
        const auto tables = bundle.situation.tables->used();
        file.write(reinterpret_cast<const char*>(tables.data()),
                   static_cast<std::streamsize>(tables.size()));
    }
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), path + ": cannot be written");
    }
}

Tessel::Result<Bundle> readBundle(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file ? static_cast<std::streamoff>(file.tellg()) : -1;
    if (size < 0) {
        return Tessel::Refused{fmt::format("{}: cannot be read", path)};
    }
    if (static_cast<std::uint64_t>(size) > mostBundleBytes) {
        return Tessel::Refused{fmt::format("{}: is too long for a bundle", path)};
    }
    std::string text(static_cast<std::size_t>(size), '\0');
    file.seekg(0);
    file.read(text.data(), size);
    const std::size_t end = text.find('\n', firstLine.size());
    if (!file || !text.starts_with(firstLine) || end == std::string::npos) {
        return Tessel::Refused{fmt::format("{}: is no bundle of this version", path)};
    }
    const std::string_view manifest =
        std::string_view(text).substr(firstLine.size(), end - firstLine.size());
    try {
        return bundleOf(BundleJson::parse(manifest), std::string_view(text).substr(end + 1), path);
    } catch (const std::exception& wrong) {
        return Tessel::Refused{fmt::format("{}: {}", path, wrong.what())};
    }
}

} // namespace OvixAgent
