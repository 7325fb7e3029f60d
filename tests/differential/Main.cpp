// Runs random scripts by the fast path, or by a worker, and by the definition and compares what
// comes of them.

#include <chrono>
#include <csignal>
#include <exception>
#include <fmt/core.h>
#include <set>
#include <string_view>
#include <unistd.h>

#include "Comparison.h"
#include "Report.h"
#include "ScriptMaker.h"
#include "Shrinking.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    std::uint64_t scripts = ~std::uint64_t{0};
    std::chrono::seconds time = std::chrono::hours(24);
    std::uint64_t seed = 1;
    bool byWorkers = false;
    bool areBusy = false;
    Differential::Fault fault = Differential::Fault::none;
};

constexpr const char* usage =
    "usage: differential [--seconds N] [--scripts N] [--seed N] [--road fast|workers|threads]\n"
    "                    [--fault byte|time|label|reason]\n"
    "Runs scripts with the numbers from the seed on until the time is over or all are done. Exits\n"
    "with 1 when the roads differ. By threads is by a worker while another one forwards at the "
    "same\n"
    "time. A fault is one that the harness makes, to see it found.\n";

bool takeOption(Options& options, std::string_view name, const char* value) {
    if (name == "--fault") {
        const auto fault = Tessel::valueOf<Differential::Fault>(value);
        options.fault = fault.value_or(Differential::Fault::none);
        return fault.has_value();
    }
    if (name == "--road") {
        options.areBusy = std::string_view(value) == "threads";
        options.byWorkers = options.areBusy || std::string_view(value) == "workers";
        return options.byWorkers || std::string_view(value) == "fast";
    }
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(value, &end, 10);
    if (name == "--seconds") {
        options.time = std::chrono::seconds(number);
    } else if (name == "--scripts") {
        options.scripts = number;
    } else if (name == "--seed") {
        options.seed = number;
    } else {
        return false;
    }
    return end != value && *end == '\0';
}

/// A process that ends by an assertion tells which script it was.
std::uint64_t currentSeed = 0;
void tellSeed(int signal) {
    std::array<char, 64> text;
    const auto end =
        fmt::format_to_n(text.data(), text.size(), "differential: in script {}\n", currentSeed);
    [[maybe_unused]] const auto written =
        write(STDERR_FILENO, text.data(), static_cast<std::size_t>(end.out - text.data()));
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

/// Differences of so many kinds are enough, and so many of a kind, since one cause makes many.
constexpr std::size_t mostKinds = 6;
constexpr int mostDifferences = 40;

/// Prints the difference that the script makes, unless one of its kind has been printed.
void report(const Differential::Script& script, Differential::Fault fault,
            std::set<std::string>& kinds) {
    const Differential::Script small = Differential::shrunk(script, fault);
    if (kinds.insert(Differential::kindOf(Differential::differenceOf(small, fault))).second) {
        fmt::print("{}\n", Differential::reportOf(small, fault));
        std::fflush(stdout);
    }
}

int run(const Options& options) {
    const Clock::time_point start = Clock::now();
    Differential::Coverage coverage;
    std::uint64_t done = 0;
    int differences = 0;
    std::set<std::string> kinds;
    while (done < options.scripts && Clock::now() - start < options.time &&
           differences < mostDifferences && kinds.size() < mostKinds) {
        currentSeed = options.seed + done++;
        Differential::Script script = Differential::makeScript(currentSeed);
        script.byWorker = options.byWorkers;
        script.isBusy = options.areBusy;
        if (Differential::firstDifference(script, options.fault, &coverage)) {
            ++differences;
            fmt::print("script {} differs\n", currentSeed);
            std::fflush(stdout);
            report(script, options.fault, kinds);
        }
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    fmt::print("{}", Differential::tableOf(coverage));
    fmt::print("{} scripts from seed {}, {} frames in {:.1f} s, {} differences of {} kinds\n", done,
               options.seed, coverage.fast + coverage.slow, seconds, differences, kinds.size());
    return differences > 0 ? 1 : 0;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        if (i + 1 == argc || !takeOption(options, argv[i], argv[i + 1])) {
            fmt::print(stderr, "{}", usage);
            return 2;
        }
    }
    std::signal(SIGABRT, tellSeed);
    std::signal(SIGSEGV, tellSeed);
    try {
        return run(options);
    } catch (const std::exception& error) {
        fmt::print(stderr, "differential: in script {}: {}\n", currentSeed, error.what());
        return 2;
    }
}
