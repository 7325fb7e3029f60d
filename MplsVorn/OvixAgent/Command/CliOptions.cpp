#include "Command/CliOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <sstream>

#include "Program/Version.h"
#include "Server/Endpoint.h"

namespace OvixAgent {

namespace {

constexpr const char* exitCodes =
    "Exit codes:\n"
    "  0  every frame is accounted for\n"
    "  1  the configuration, a capture or an output is faulty; the whole frames of a truncated\n"
    "     capture are forwarded all the same\n"
    "  2  the command line is invalid, or workers or a device of DPDK cannot be had\n"
    "  3  the frames do not add up\n"
    "  130, 143  SIGINT or SIGTERM has ended a run on captures; the balance says how far it came";

/// "PORT=CAPTURE"; port names contain no "=".
std::optional<InputOption> parseInput(const std::string& text) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) {
        return std::nullopt;
    }
    return InputOption{text.substr(0, equals), text.substr(equals + 1)};
}

/// `--in` takes every argument up to the next option, so CONFIG may be among its values.
void takeConfigFromInputs(std::string& config, std::vector<std::string>& inputs) {
    const auto found = std::find_if(inputs.begin(), inputs.end(), [](const std::string& text) {
        return text.find('=') == std::string::npos;
    });
    if (config.empty() && found != inputs.end()) {
        config = *found;
        inputs.erase(found);
    }
}

std::vector<InputOption> parseInputs(const std::vector<std::string>& texts) {
    if (texts.empty()) {
        throw CLI::RequiredError("--in");
    }
    std::vector<InputOption> inputs;
    for (const std::string& text : texts) {
        const std::optional<InputOption> input = parseInput(text);
        if (!input) {
            throw CLI::ValidationError("--in", fmt::format("\"{}\" is not PORT=CAPTURE", text));
        }
        inputs.push_back(*input);
    }
    return inputs;
}

std::string endpointOf(const std::string& text) {
    const auto endpoint = OvixHttp::Endpoint::fromText(text);
    if (!endpoint) {
        throw CLI::ValidationError("--metrics", endpoint.refused().what);
    }
    return endpoint.value().text();
}

/// A run on captures needs --in and --out; a live run allows neither.
void checkForm(const RunOptions& options, const std::vector<std::string>& inputs) {
    if (options.live && !(inputs.empty() && options.outDirectory.empty())) {
        throw CLI::ExcludesError("--live", inputs.empty() ? "--out" : "--in");
    }
    if (options.live && options.anyMac) {
        throw CLI::ExcludesError("--live", "--any-mac");
    }
    if (!options.live && options.carrier) {
        throw CLI::RequiresError("--carrier", "--live");
    }
    if (!options.metrics.empty() && !options.live) {
        throw CLI::RequiresError("--metrics", "--live");
    }
    if (!options.metrics.empty() && options.control.empty() && options.tables.empty()) {
        throw CLI::RequiresError("--metrics", "--tables or --control");
    }
    if (options.metrics.empty() && (!options.metricsHosts.empty() || options.metricsLabels > 0)) {
        throw CLI::RequiresError(options.metricsLabels > 0 ? "--metrics-labels" : "--metrics-host",
                                 "--metrics");
    }
    if (options.create && options.tables.empty()) {
        throw CLI::RequiresError("--create", "--tables");
    }
    if (!options.live && options.outDirectory.empty()) {
        throw CLI::RequiredError("--out for a run on captures, or --live,");
    }
}

CliExit exitFor(const CLI::App& app, const CLI::ParseError& error) {
    std::ostringstream out;
    std::ostringstream err;
    const bool isSuccess = app.exit(error, out, err) == 0;
    return {isSuccess ? ExitCode::success : ExitCode::usage,
            isSuccess ? out.str() : std::string(app.get_name()) + ": " + err.str()};
}

void addTables(CLI::App* to, std::string& tables, const char* help) {
    to->add_option("--tables", tables, help)->type_name("NAME")->check([](const std::string& name) {
        return std::string(name.empty() ? "the name is empty" : "");
    });
}

/// What is forwarded, and from where to where.
void addFrameOptions(CLI::App* run, RunOptions& options, std::vector<std::string>& inputs) {
    run->add_option("CONFIG", options.config, "The configuration, a YAML file");
    run->add_option("--in", inputs, "A capture to read, and the port that its frames arrive at")
        ->type_name("PORT=CAPTURE");
    run->add_option("--out", options.outDirectory,
                    "The directory for PORT.pcap, cpu.pcap and lo.pcap")
        ->type_name("DIR");
    run->add_flag("--live", options.live,
                  "Forward on the network interfaces named by the ports instead of on captures, "
                  "until SIGTERM; SIGHUP reloads CONFIG");
    run->add_flag("--carrier", options.carrier,
                  "Take the links of live ports down when the agent ends or is killed, so that "
                  "neighbours hear of it, and up again when the next one forwards");
    run->add_flag("--any-mac", options.anyMac,
                  "Forward frames that are addressed to other stations, too; without it a port "
                  "takes those for its own MAC address, for groups and for all");
}

/// By what it is forwarded, and what is shown of it.
void addOtherOptions(CLI::App* run, RunOptions& options) {
    run->add_flag("--json", options.json, "Print the summary as JSON");
    run->add_flag("--trace", options.trace, "Print what happens to each frame");
    run->add_option("--plugin", options.plugin, "The plugin library to load")->type_name("FILE");
    addTables(run, options.tables,
              "Take the label tables, the hardware status and the multicast VPN interfaces "
              "from shared memory, where ovixctl and others publish them, instead of from CONFIG");
    run->add_flag("--create", options.create, "Make empty tables of that name when there are none");
    run->add_option("--control", options.control,
                    "The socket at which to answer ovixctl (with --tables, by default NAME.sock in "
                    "the runtime directory)")
        ->type_name("PATH");
    run->add_option_function<std::string>(
           "--metrics", [&options](const std::string& text) { options.metrics = endpointOf(text); },
           "Serve metrics of a live run for Prometheus at http://ADDRESS:PORT/metrics, and a page "
           "that shows what it does at /; without ADDRESS on this machine only, at a PATH to this "
           "user "
           "only")
        ->type_name("[ADDRESS:]PORT|/PATH");
    run->add_option("--metrics-labels", options.metricsLabels,
                    "Have the counters of the N busiest labels among the metrics (by default none)")
        ->type_name("N")
        ->check(CLI::Range(1, 1000).description(""));
    run->add_option("--metrics-host", options.metricsHosts,
                    "A name by which metrics may be asked for, beside the address and localhost")
        ->type_name("NAME");
    run->add_option_function<std::string>(
           "--fast-path", [&options](const std::string& word) { options.fastPath = word == "on"; },
           "Whether to forward by decisions made once per label, which changes nothing but the "
           "time it takes (by default on)")
        ->type_name("on|off")
        ->check(CLI::IsMember({"on", "off"}).description(""));
    run->add_option("--check-every", options.checkEvery,
                    "Forward every Nth frame both ways, by decision and without, and report any "
                    "difference (not with workers)")
        ->type_name("N")
        ->check(CLI::PositiveNumber.description(""));
    run->add_flag("--quiet", options.quiet, "Show no progress");
}

constexpr const char* explainFooter =
    "FRAME is hexadecimal digits, CAPTURE:NUMBER, or words: headers with commas in between, the\n"
    "outermost first:\n"
    "  mac DESTINATION [from SOURCE]\n"
    "  vlan ID [priority N]\n"
    "  label L[/ttl N][/tc N]\n"
    "  control-word [0xHHHHHHHH]\n"
    "  ethernet DESTINATION [from SOURCE]\n"
    "  ip SOURCE > DESTINATION [udp|tcp [SPORT >] DPORT | lsp-ping PREFIX/LENGTH | proto N]\n"
    "     [ttl N] [tos N] [df] [size N]\n"
    "Nothing is forwarded. Exit codes:\n"
    "  0  the frame is forwarded, or punted to the CPU\n"
    "  1  it is dropped, or handed on because it is not for this router\n"
    "  2  the command line, the configuration or the frame is faulty";

CLI::App* addExplain(CLI::App& app, ExplainOptions& options) {
    CLI::App* const explain =
        app.add_subcommand("explain", "Tell why a frame goes where it goes, or nowhere");
    explain->footer(explainFooter);
    explain->add_option("CONFIG", options.config, "The configuration, a YAML file")->required();
    explain->add_option("FRAME", options.frame, "The frame")->required();
    explain
        ->add_option("--port", options.port,
                     "The port that it comes in at (by default the interface of the capture that "
                     "CAPTURE:NUMBER is in, if it names that)")
        ->type_name("PORT");
    addTables(explain, options.tables, "Take the label tables from shared memory");
    explain->add_flag("--any-mac", options.anyMac,
                      "Forward frames that are addressed to other stations, too");
    explain->add_flag("--json", options.json, "Print JSON");
    explain->add_option("--html", options.html, "Write a page that shows the walk, too")
        ->type_name("FILE");
    explain->add_option("--plugin", options.plugin, "The plugin library to load")
        ->type_name("FILE");
    return explain;
}

CLI::App* addReplay(CLI::App& app, ReplayOptions& options) {
    CLI::App* const replay = app.add_subcommand(
        "replay", "Forward the frames of a bundle, and tell what differs from what it says");
    replay->footer("Exit codes:\n"
                   "  0  every frame has the same fate, and leaves with the same bytes\n"
                   "  1  some differ\n"
                   "  2  the command line or the bundle is faulty");
    replay->add_option("BUNDLE", options.bundle, "A file that ovixctl bundle has written")
        ->required();
    replay->add_flag("--json", options.json, "Print JSON");
    replay->add_option("--plugin", options.plugin, "The plugin library to load")->type_name("FILE");
    return replay;
}

} // namespace

std::variant<RunOptions, ExplainOptions, ReplayOptions, CliExit>
parseCommandLine(int argc, const char* const* argv) {
    ReplayOptions replaying;
    ExplainOptions explaining;
    RunOptions options;
    std::vector<std::string> inputs;
    CLI::App app("Forwards MPLS frames between network interfaces, or from captures to captures.",
                 "ovix-agent");
    app.set_version_flag("--version", OvixLog::versionText("ovix-agent"));
    app.require_subcommand(1);
    CLI::App* const run = app.add_subcommand(
        "run", "Forward the frames of captures or, with --live, of network interfaces");
    run->footer(exitCodes);
    addFrameOptions(run, options, inputs);
    addOtherOptions(run, options);
    const CLI::App* const explain = addExplain(app, explaining);
    const CLI::App* const replay = addReplay(app, replaying);
    try {
        app.parse(argc, argv);
        if (explain->parsed()) {
            return explaining;
        }
        if (replay->parsed()) {
            return replaying;
        }
        takeConfigFromInputs(options.config, inputs);
        checkForm(options, inputs);
        if (options.config.empty()) {
            throw CLI::RequiredError("CONFIG");
        }
        if (!options.live) {
            options.inputs = parseInputs(inputs);
        }
    } catch (const CLI::ParseError& error) {
        return exitFor(app, error);
    }
    return options;
}

} // namespace OvixAgent
