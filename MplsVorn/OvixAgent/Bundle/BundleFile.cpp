// A bundle as bytes.

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "Bundle/Bundle.h"
#include "Explain/FrameWords.h"
#include "Explain/HeaderWords.h"
#include "Explain/RemedyWords.h"
#include "Posix/FileDescriptor.h"
#include "Posix/SystemError.h"
#include "State/RoadSteps.h"
#include "Summary/JsonText.h"
#include "Tessel/TypeName.h"

namespace OvixAgent {

namespace {

using BundleJson = nlohmann::ordered_json;

constexpr std::string_view mark = "ovix bundle ";
constexpr int version = 2;
/// Of what is read, however long a file is.
constexpr std::size_t mostBundleBytes = std::size_t{4} << 30U;

/// The line that says what it is, how long the rest is, and its hash: no damage goes unseen.
std::string firstLineOf(std::string_view json, std::string_view tables) {
    return fmt::format("{}{} {} {:016x}\n", mark, version, json.size() + tables.size(),
                       Tessel::hashText(tables, Tessel::hashText(json)));
}

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

/// Without the library's name and number for the error.
std::string_view plainText(std::string_view error) {
    const std::size_t end = error.starts_with('[') ? error.find("] ") : error.npos;
    return end == error.npos ? error : error.substr(end + 2);
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
        try {
            bundle.frames.push_back(frameOfBundle(situation.config, each));
        } catch (const std::exception& wrong) {
            throw std::invalid_argument(
                fmt::format("frame {}: {}", bundle.frames.size() + 1, plainText(wrong.what())));
        }
    }
    return bundle;
}

} // namespace

namespace {

void write(const Posix::FileDescriptor& file, std::string_view bytes, const std::string& path) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file.value(), bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            Posix::fail((path + ": cannot be written").c_str());
        }
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
}

/// What the first line and the length tell of the rest; empty when it is intact.
std::string damageOf(std::string_view text, std::string_view firstLine, std::string_view json,
                     std::string_view tables) {
    const std::string_view rest = text.substr(firstLine.size());
    if (!firstLine.starts_with(mark) || !firstLine.ends_with('\n')) {
        return "is no bundle";
    }
    if (!firstLine.substr(mark.size()).starts_with(fmt::format("{} ", version))) {
        return fmt::format("is no bundle of version {}", version);
    }
    const std::string_view said =
        firstLine.substr(mark.size() + fmt::formatted_size("{} ", version));
    std::size_t length = 0;
    std::from_chars(said.data(), said.data() + said.size(), length);
    if (length > rest.size()) {
        return fmt::format("is cut short: it has {} of {} bytes", rest.size(), length);
    }
    return firstLine == firstLineOf(json, tables) ? "" : "is damaged: its hash is another one";
}

Tessel::Result<std::string> contentOf(const std::string& path) {
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
    return file ? Tessel::Result<std::string>(std::move(text))
                : Tessel::Refused{fmt::format("{}: cannot be read", path)};
}

} // namespace

void writeBundle(const std::string& path, const Bundle& bundle) {
    const std::string json = dumped(asJson(bundle)) + '\n';
    std::string_view tables;
    if (bundle.situation.tables) {
        const auto used = bundle.situation.tables->used();
        tables = {reinterpret_cast<const char*>(used.data()), used.size()};
    }
    constexpr mode_t ofOwner = 0600;
    const Posix::FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, ofOwner));
    if (!file.isOpen()) {
        Posix::fail((path + ": cannot be written").c_str());
    }
    write(file, firstLineOf(json, tables), path);
    write(file, json, path);
    write(file, tables, path);
}

Tessel::Result<Bundle> readBundle(const std::string& path) {
    const Tessel::Result<std::string> content = contentOf(path);
    if (!content) {
        return content.refused();
    }
    const std::string_view text = content.value();
    const std::string_view firstLine =
        text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    const std::string_view rest = text.substr(firstLine.size());
    const std::string_view json = rest.substr(0, std::min(rest.find('\n'), rest.size() - 1) + 1);
    const std::string_view tables = rest.substr(json.size());
    if (const std::string damage = damageOf(text, firstLine, json, tables); !damage.empty()) {
        return Tessel::Refused{fmt::format("{}: {}", path, damage)};
    }
    try {
        return bundleOf(BundleJson::parse(json), tables, path);
    } catch (const std::exception& wrong) {
        return Tessel::Refused{fmt::format("{}: {}", path, plainText(wrong.what()))};
    }
}

} // namespace OvixAgent
