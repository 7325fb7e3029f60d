#include "Command/Explaining.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fmt/format.h>
#include <fstream>

#include "Capture/CaptureInterfaces.h"
#include "Command/Run.h"
#include "Config/ConfigText.h"
#include "Explain/Explanation.h"
#include "Explain/FrameWords.h"
#include "Explain/RemedyWords.h"
#include "Program/Ending.h"
#include "Tables/TableLoading.h"

namespace OvixAgent {

namespace {

/// "no port "eth7"", with the name that may be meant.
std::string noPortText(const Situation& situation, const std::string& name) {
    std::vector<std::string_view> known;
    for (const PortConfig& each : situation.config.ports) {
        known.emplace_back(each.name);
    }
    return fmt::format("no port {}{}", inQuotes(name), suggestion(name, known));
}

/// Where a frame of a capture came in, if the capture says it.
Tessel::Result<PortIndex> portOfCapture(const Situation& situation, const std::string& frame) {
    constexpr std::string_view needed = "--port is needed";
    const std::optional<FrameOfCapture> from = frameOfCapture(frame);
    if (!from) {
        return Tessel::Refused{
            fmt::format("{}: only a frame of a pcapng capture may say where it came in", needed)};
    }
    if (const auto given = readFrame(frame, 0, {}); !given) {
        return given.refused();
    }
    const std::string name = captureInterfaceOf(from->path, from->number);
    if (name.empty()) {
        return Tessel::Refused{fmt::format("{}: {} does not say where frame {} came in", needed,
                                           from->path, from->number)};
    }
    const PortIndex port = portNamed(situation.config, name);
    if (port == noPort) {
        return Tessel::Refused{fmt::format("{}: frame {} of {} came in at {}, and there is {}",
                                           needed, from->number, from->path, inQuotes(name),
                                           noPortText(situation, name))};
    }
    return port;
}

Tessel::Result<PortIndex> portOf(const Situation& situation, const std::string& name,
                                 const std::string& frame) {
    if (name.empty()) {
        return portOfCapture(situation, frame);
    }
    const PortIndex port = portNamed(situation.config, name);
    return port != noPort ? Tessel::Result<PortIndex>(port)
                          : Tessel::Refused{"--port: there is " + noPortText(situation, name)};
}

Tessel::Result<void> writePage(const std::string& path, const Explanation& explanation) {
    std::ofstream file(path, std::ios::binary);
    file << explanationHtml(explanation);
    file.close();
    return file ? Tessel::Result<void>()
                : Tessel::Refused{fmt::format("{}: cannot be written", path)};
}

/// A port without a MAC address takes its interface's in a live run; here any will do.
void giveMacs(AgentConfig& config) {
    constexpr Lumo::EthAddr local{0x02, 0x00, 0x00, 0x00, 0x00, 0x00};
    for (std::size_t i = 0; i < config.ports.size(); ++i) {
        if (config.ports[i].mac == Lumo::EthAddr{}) {
            config.ports[i].mac = local;
            config.ports[i].mac[4] = static_cast<std::uint8_t>((i + 1) >> 8U);
            config.ports[i].mac[5] = static_cast<std::uint8_t>(i + 1);
        }
    }
}

Tessel::Result<Situation> situationOf(const ExplainOptions& options) {
    Tessel::Result<AgentConfig> config = loadConfig(options.config);
    if (!config) {
        return config.refused();
    }
    Situation situation;
    situation.config = std::move(config).value();
    giveMacs(situation.config);
    situation.file = options.config;
    situation.plugin = options.plugin;
    situation.anyMac = options.anyMac;
    situation.tablesName = options.tables;
    situation.explainCommand =
        "ovix-agent explain " + shellWord(options.config) +
        (options.tables.empty() ? "" : " --tables " + shellWord(options.tables)) +
        (options.anyMac ? " --any-mac" : "");
    if (!options.tables.empty()) {
        const auto tables = openSharedTables(options.tables, false);
        if (!tables) {
            return tables.refused();
        }
        situation.tables = std::make_shared<const Tessel::TableCopy>(
            Tessel::TableCopy::ofNewest(options.tables, tables.value()->memory()->bytes()));
    }
    return situation;
}

Tessel::Result<int> explainByFile(const ExplainOptions& options) {
    const Tessel::Result<Situation> situation = situationOf(options);
    if (!situation) {
        return situation.refused();
    }
    serveToggles(situation.value().config, options.config);
    return explainFrame(situation.value(), options.port, options.frame,
                        {options.json, options.html});
}

} // namespace

Tessel::Result<int> explainFrame(const Situation& situation, const std::string& port,
                                 const std::string& frame, const PrintOptions& printing) {
    const Tessel::Result<PortIndex> index = portOf(situation, port, frame);
    if (!index) {
        return index.refused();
    }
    const Tessel::Result<GivenFrame> given =
        readFrame(frame, index.value(), {situation.config.ports[index.value()].mac});
    if (!given) {
        return given.refused();
    }
    const Tessel::Result<Explanation> explanation = explain(situation, given.value());
    if (!explanation) {
        return explanation.refused();
    }
    if (!printing.html.empty()) {
        if (const auto written = writePage(printing.html, explanation.value()); !written) {
            return written.refused();
        }
    }
    std::fputs((printing.json ? explanationJson(explanation.value())
                              : explanationText(explanation.value()))
                   .c_str(),
               stdout);
    if (std::fflush(stdout) != 0) {
        return Tessel::Refused{fmt::format("printing failed: {}", std::strerror(errno))};
    }
    const Walk& walk = explanation.value().walk;
    return walk.isForwarded() || walk.kind == FateKind::punted ? ExplainExit::settled
                                                               : ExplainExit::lost;
}

int exitCodeOf(const std::function<Tessel::Result<int>()>& command) {
    std::string problem;
    try {
        const Tessel::Result<int> code = command();
        if (code) {
            return code.value();
        }
        problem = code.refused().what;
    } catch (const std::exception& error) {
        problem = OvixLog::reasonOf(error);
    }
    std::fprintf(stderr, "ovix-agent: %s\n", problem.c_str());
    return ExitCode::usage;
}

int runExplain(const ExplainOptions& options) {
    return exitCodeOf([&] { return explainByFile(options); });
}

} // namespace OvixAgent
