// ovix-fpm: publishes zebra's routes in shared tables.

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <linux/capability.h>
#include <optional>
#include <sys/signalfd.h>
#include <utility>
#include <vector>

#include "Log/Log.h"
#include "Program/Ending.h"
#include "Program/Privileges.h"
#include "Program/ServiceManager.h"
#include "Program/Version.h"
#include "nexthops/NextHopWatch.h"
#include "pseudowires/LdpWatch.h"
#include "publishing/FpmServer.h"
#include "serving/FpmMetrics.h"

namespace {

/// How long other writers of the tables are waited for at the start.
constexpr std::chrono::milliseconds firstTurnWait{5000};

struct Options {
    std::string tables = "ovix";
    std::string listen = "127.0.0.1:2620";
    std::vector<std::string> peers{"frr"};
    double sweepAfter = 30; ///< routing daemons reconnect to a restarted zebra within some 10 s
    bool verbose = false;
    bool pseudowires = false;
    bool nextHops = false;
    double pseudowiresEvery = 1; ///< seconds
    std::string vtysh = OvixFpm::LdpWatch::Settings().vtysh;
    std::string vtySocket;
    std::string metrics;
    std::vector<std::string> metricsHosts;
};

template <class T>
T valueOrInvalid(Tessel::Result<T> result, const char* option) {
    if (!result) {
        throw CLI::ValidationError(option, result.refused().what);
    }
    return std::move(result).value();
}

/// Throws CLI::ValidationError.
OvixFpm::FpmServer::Settings settingsOf(const Options& options) {
    OvixFpm::FpmServer::Settings settings;
    settings.listenAt =
        valueOrInvalid(OvixFpm::ListenAddress::fromText(options.listen), "--listen");
    if (options.peers != Options().peers) {
        settings.peers = valueOrInvalid(OvixFpm::AllowedPeers::fromNames(options.peers), "--peer");
    }
    if (!settings.listenAt.isLoopback() && !settings.peers.areAll()) {
        throw CLI::ValidationError("--listen", options.listen +
                                                   " can be reached from other hosts, whose users "
                                                   "cannot be checked; --peer any allows that");
    }
    settings.sweepAfter = valueOrInvalid(OvixFpm::sweepTime(options.sweepAfter), "--sweep-after");
    settings.isVerbose = options.verbose;
    if (!options.metrics.empty()) {
        valueOrInvalid(OvixHttp::Endpoint::fromText(options.metrics), "--metrics");
    } else if (!options.metricsHosts.empty()) {
        throw CLI::RequiresError("--metrics-host", "--metrics");
    }
    return settings;
}

/// Becomes readable with SIGINT and SIGTERM, which are blocked.
Posix::FileDescriptor stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return Posix::FileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

/// What else is asked of FRR.
OvixFpm::Companions watches(const Options& options, OvixFpm::RoutePublisher& routes,
                            const OvixFpm::Log& log) {
    OvixFpm::Companions asked;
    if (options.pseudowires) {
        OvixFpm::LdpWatch::Settings settings;
        settings.vtysh = options.vtysh;
        settings.socketDirectory = options.vtySocket;
        settings.every =
            std::chrono::milliseconds(static_cast<long>(options.pseudowiresEvery * 1000));
        asked.push_back(std::make_unique<OvixFpm::LdpWatch>(routes, settings, log));
    }
    if (options.nextHops) {
        OvixFpm::NextHopWatch::Settings settings;
        settings.vtysh = options.vtysh;
        settings.socketDirectory = options.vtySocket;
        asked.push_back(std::make_unique<OvixFpm::NextHopWatch>(routes, settings, log));
    }
    return asked;
}

void serve(const Options& options, OvixLog::Log& log) {
    const Posix::FileDescriptor stop = stopSignals();
    Mpls::SharedPublisher tables(options.tables, Mpls::RouteOwner::fpm, firstTurnWait);
    OvixFpm::InterfaceLookup interfaces;
    OvixFpm::RoutePublisher routes(tables, interfaces);
    const OvixFpm::Log logged = [&log](std::string_view about, const std::string& line) {
        log(about, line);
    };
    OvixLog::ServiceManager service;
    OvixFpm::FpmServer::Settings settings = settingsOf(options);
    settings.turn = [&service](OvixFpm::FpmServer::Clock::time_point now, bool isConnected) {
        service.statusIs(isConnected ? "zebra is connected" : "waiting for zebra");
        service.isReady();
        service.turn(now);
    };
    OvixFpm::FpmServer server(routes, settings, logged, watches(options, routes, logged));
    std::optional<OvixFpm::MetricsServer> metrics;
    if (!options.metrics.empty()) {
        metrics.emplace(valueOrInvalid(OvixHttp::Endpoint::fromText(options.metrics), "--metrics"),
                        options.metricsHosts, [&server] { return server.state(); });
    }
    server.run(stop.value());
    service.isStopping();
}

int serveAndLog(const Options& options, OvixLog::Log& log) {
    try {
        serve(options, log);
        return 0;
    } catch (const std::exception& error) {
        log({}, OvixLog::reasonOf(error));
        return 1;
    }
}

void addPseudowireOptions(CLI::App& app, Options& options) {
    app.add_flag("--pseudowires", options.pseudowires,
                 "Publish the pseudowires of ldpd, too, which vtysh asks it for");
    app.add_flag("--next-hops", options.nextHops,
                 "Publish the next hops that zebra leaves out (of IPv6 routes over an IPv4 core), "
                 "too, which vtysh asks it for");
    app.add_option("--pseudowires-every", options.pseudowiresEvery,
                   "How often ldpd is asked (0.1 to 3600)")
        ->capture_default_str()
        ->check(CLI::Range(0.1, 3600.0).description(""))
        ->type_name("SECONDS");
    app.add_option("--vtysh", options.vtysh, "The program that asks FRR")
        ->capture_default_str()
        ->type_name("PATH");
    app.add_option("--vty-socket", options.vtySocket,
                   "The directory of the daemons' vty sockets, unless it is the usual one")
        ->type_name("DIRECTORY");
}

void addOptions(CLI::App& app, Options& options) {
    app.set_version_flag("--version", OvixLog::versionText("ovix-fpm"));
    app.add_option("--tables", options.tables, "The tables to publish in")
        ->capture_default_str()
        ->envname("OVIX_TABLES")
        ->type_name("NAME");
    app.add_option("--listen", options.listen,
                   "Where zebra connects to; an IPv6 address is written in []")
        ->capture_default_str()
        ->type_name("ADDRESS:PORT");
    app.add_option("--peer", options.peers,
                   "A user whose processes may connect beside those of root and of the listener's "
                   "own user; any for everybody")
        ->capture_default_str()
        ->type_name("USER");
    app.add_option(
           "--sweep-after", options.sweepAfter,
           "Remove the routes that zebra has not announced again since it connected, once it "
           "has been quiet for this time (0 to 3600)")
        ->capture_default_str()
        ->type_name("SECONDS");
    addPseudowireOptions(app, options);
    app.add_option(
           "--metrics", options.metrics,
           "Serve metrics for Prometheus at http://ADDRESS:PORT/metrics; without ADDRESS on "
           "this machine only, at a PATH to this user only")
        ->type_name("[ADDRESS:]PORT|/PATH");
    app.add_option("--metrics-host", options.metricsHosts,
                   "A name by which metrics may be asked for, beside the address and localhost")
        ->type_name("NAME");
    app.add_flag("--verbose", options.verbose, "Log every change of a route");
    app.footer("Exit codes: 0 ended by SIGINT or SIGTERM, 1 an error, 2 the command line is wrong");
}

int carryOut(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Publishes zebra's routes (dplane_fpm_nl) in shared tables. The routes stay when zebra or "
        "this program ends.",
        "ovix-fpm");
    addOptions(app, options);
    try {
        app.parse(argc, argv);
        settingsOf(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader of the log that goes is no reason to end
    // Of root: files of others, and giving files to groups.
    OvixLog::keepCapabilities({CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH});
    OvixLog::Log log("ovix-fpm");
    return serveAndLog(options, log);
}

} // namespace

int main(int argc, char** argv) {
    return OvixLog::endOf("ovix-fpm", 1, [&] { return carryOut(argc, argv); });
}
