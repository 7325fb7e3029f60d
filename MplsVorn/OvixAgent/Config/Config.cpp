#include "Config/Config.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <sched.h>

#include "Config/ConfigDocument.h"
#include "Config/ConfigSections.h"
#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

constexpr std::size_t maxToggleNameSize = 100;

struct FileCloser {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

std::string readToggleName(const ConfigMap& map, std::size_t index) {
    const std::string_view key = map.key(index);
    if (key.size() > maxToggleNameSize) {
        map.at(index).fail("the name is longer than 100 bytes");
    }
    return std::string(key);
}

ToggleConfig readToggles(const ConfigValue& value) {
    ToggleConfig toggles;
    const ConfigMap files(value);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const ConfigValue file = files.at(i);
        const ConfigMap names(file);
        std::map<std::string, bool>& states = toggles[readToggleName(files, i)];
        for (std::size_t j = 0; j < names.size(); ++j) {
            states[readToggleName(names, j)] = names.at(j).boolean();
        }
    }
    return toggles;
}

/// The frames of an attachment circuit are carried whole, labels and all, and never looked up.
void closeAttachmentCircuits(const ConfigValue& ports, AgentConfig& config) {
    for (const auto& [pseudowire, line] : config.pseudowires) {
        const ConfigValue item = ports.item(pseudowire.port);
        const ConfigMap map(item);
        const auto mpls = map.find("mpls");
        if (mpls && mpls->boolean()) {
            mpls->fail(fmt::format("true contradicts pseudowire {} at line {}, of which {} is the "
                                   "attachment circuit",
                                   inQuotes(pseudowire.name), line,
                                   inQuotes(config.ports[pseudowire.port].name)));
        }
        config.ports[pseudowire.port].mpls = false;
    }
}

std::string readCpuTap(const ConfigValue& value) {
    const ConfigMap map(value);
    std::string tap = map.required("tap").name("device name", 15);
    map.refuseOthers();
    return tap;
}

std::vector<std::string> readEal(const ConfigValue& value) {
    const ConfigMap map(value);
    const ConfigValue list = map.required("eal");
    std::vector<std::string> words;
    for (std::size_t i = 0; i < list.listSize(); ++i) {
        words.push_back(list.item(i).name("argument", 255));
    }
    map.refuseOthers();
    return words;
}

/// The threads that forward: their number, the processors that they run on, or both.
void readWorkers(const ConfigMap& map, AgentConfig& config) {
    constexpr unsigned int most = 256;
    const auto workers = map.find("workers");
    const auto cpus = map.find("cpus");
    if (workers) {
        config.workers = workers->number<unsigned int>("number of workers", 0, most);
    }
    if (!cpus) {
        return;
    }
    for (std::size_t i = 0; i < cpus->listSize(); ++i) {
        const auto cpu = cpus->item(i).number<unsigned int>("processor", 0, CPU_SETSIZE - 1);
        if (std::find(config.cpus.begin(), config.cpus.end(), cpu) != config.cpus.end()) {
            cpus->item(i).fail(fmt::format("processor {} is given twice", cpu));
        }
        config.cpus.push_back(cpu);
    }
    if (workers && config.workers != config.cpus.size()) {
        cpus->fail(fmt::format("{} processors for {} workers", config.cpus.size(), config.workers));
    }
    config.workers = static_cast<unsigned int>(config.cpus.size());
}

void readLabelTables(const ConfigMap& map, const PortNames& ports, AgentConfig& config) {
    if (const auto lfib = map.find("lfib")) {
        config.labelRoutes = readLabelRoutes(*lfib, ports);
    }
    if (const auto hardware = map.find("hardware")) {
        config.hardware = readHardware(*hardware, ports);
    }
}

AgentConfig readConfig(const ConfigValue& root) {
    if (root.kind() == ConfigValue::Kind::null) {
        root.fail("ports: missing (the file is empty)");
    }
    const ConfigMap map(root);
    AgentConfig config;
    config.mplsRouting = map.booleanOr("mpls-routing", true);
    if (const auto toggles = map.find("toggles")) {
        config.toggles = readToggles(*toggles);
    }
    const ConfigValue ports = map.required("ports");
    config.ports = readPorts(ports);
    const PortNames portNames(config.ports);
    if (const auto neighbours = map.find("neighbours")) {
        config.neighbours = readNeighbours(*neighbours, portNames);
    }
    readLabelTables(map, portNames, config);
    if (const auto fecs = map.find("fecs")) {
        config.fecs = readFecs(*fecs, portNames);
    }
    if (const auto pseudowires = map.find("pseudowires")) {
        config.pseudowires = readPseudowires(*pseudowires, portNames);
        closeAttachmentCircuits(ports, config);
    }
    if (const auto mvpn = map.find("mvpn")) {
        config.mvpn = readMvpn(*mvpn, portNames);
    }
    if (const auto answers = map.find("answers")) {
        config.answers = readAnswers(*answers);
    }
    if (const auto cpu = map.find("cpu")) {
        config.cpuTap = readCpuTap(*cpu);
    }
    if (const auto dpdk = map.find("dpdk")) {
        config.eal = readEal(*dpdk);
    }
    readWorkers(map, config);
    if (const auto routes = map.find("routes")) {
        config.routes = readRoutes(*routes, config, portNames);
    }
    map.refuseOthers();
    for (PortConfig& port : config.ports) {
        port.routesIp = port.routesIp || hasRoutes(config, port.vrf);
    }
    return config;
}

} // namespace

Tessel::Result<std::string> readFile(const std::string& path) {
    const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        return Tessel::Refused{path + ": cannot be opened: " + std::strerror(errno)};
    }
    std::string text;
    std::array<char, 65536> block{};
    while (const std::size_t size = std::fread(block.data(), 1, block.size(), file.get())) {
        text.append(block.data(), size);
        if (text.size() > ConfigLimit::bytes) {
            return text; // is refused, however much more there is
        }
    }
    if (std::ferror(file.get()) != 0) {
        return Tessel::Refused{path + ": cannot be read: " + std::strerror(errno)};
    }
    return text;
}

Tessel::Result<AgentConfig> parseConfig(const std::string& text, const std::string& file,
                                        const std::stop_token& stop) {
    try {
        const ConfigDocument document = ConfigDocument::parse(text, file, stop);
        AgentConfig config = readConfig(ConfigValue(document));
        config.text = std::make_shared<const std::string>(text);
        return config;
    } catch (const ConfigError& error) {
        return Tessel::Refused{error.what()};
    }
}

Tessel::Result<AgentConfig> loadConfig(const std::string& path, const std::stop_token& stop) {
    const Tessel::Result<std::string> text = readFile(path);
    return text ? parseConfig(text.value(), path, stop) : text.refused();
}

} // namespace OvixAgent
