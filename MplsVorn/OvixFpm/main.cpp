// ovix-fpm: zebra's routes into shared label tables.

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <fmt/core.h>
#include <stdexcept>
#include <sys/signalfd.h>
#include <unistd.h>

#include "publishing/FpmServer.h"
#include "publishing/SweepTime.h"

namespace {

struct Options {
    std::string tables = "ovix";
    std::string listen = "127.0.0.1:2620";
    double sweepAfter = 30; ///< routing daemons come back to a restarted zebra after some 10 s
    bool verbose = false;
};

/// Throws CLI::ValidationError.
OvixFpm::FpmServer::Settings settingsOf(const Options& options) {
    OvixFpm::FpmServer::Settings settings;
    const char* option = "--listen";
    try {
        settings.listenAt = OvixFpm::ListenAddress::fromText(options.listen);
        option = "--sweep-after";
        settings.sweepAfter = OvixFpm::sweepTime(options.sweepAfter);
    } catch (const std::invalid_argument& wrong) {
        throw CLI::ValidationError(option, wrong.what());
    }
    settings.tellsOfRoutes = options.verbose;
    return settings;
}

/// Becomes readable with SIGINT and SIGTERM, which do nothing else from now on.
int stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC);
}

void serve(const Options& options) {
    const int stop = stopSignals();
    Mpls::TablePublisher tables(Tessel::TableMemory::sharedForWriting(options.tables));
    OvixFpm::InterfaceLookup interfaces;
    OvixFpm::RoutePublisher routes(tables, interfaces);
    OvixFpm::FpmServer server(routes, settingsOf(options), [](const std::string& line) {
        fmt::print(stderr, "ovix-fpm: {}\n", line);
    });
    server.run(stop);
    close(stop);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Publishes the routes that zebra tells (dplane_fpm_nl) in shared label tables. The "
        "routes stay when zebra or this program goes.",
        "ovix-fpm");
    app.set_version_flag("--version", std::string("ovix-fpm 0.1.0"));
    app.add_option("--tables", options.tables, "The tables to publish in")
        ->capture_default_str()
        ->envname("OVIX_TABLES")
        ->type_name("NAME");
    app.add_option("--listen", options.listen,
                   "Where zebra connects to; an IPv6 address stands in []")
        ->capture_default_str()
        ->type_name("ADDRESS:PORT");
    app.add_option("--sweep-after", options.sweepAfter,
                   "So long after zebra has fallen quiet, routes of an earlier connection that it "
                   "has not told of again are taken away (0 to 3600)")
        ->capture_default_str()
        ->type_name("SECONDS");
    app.add_flag("--verbose", options.verbose, "Print every change");
    app.footer("Exit codes: 0 ended by SIGINT or SIGTERM, 1 trouble, 2 the command line is wrong");
    try {
        app.parse(argc, argv);
        settingsOf(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        serve(options);
    } catch (const std::exception& error) {
        fmt::print(stderr, "ovix-fpm: {}\n", error.what());
        return 1;
    }
    return 0;
}
