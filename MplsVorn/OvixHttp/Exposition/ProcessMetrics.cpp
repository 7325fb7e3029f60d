#include "Exposition/ProcessMetrics.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

#include "Exposition/MetricList.h"

namespace OvixHttp {

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double processorSeconds() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    return secondsOf(used.ru_utime) + secondsOf(used.ru_stime);
}

double residentBytes() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t all = 0;
    std::uint64_t resident = 0;
    file >> all >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

double openDescriptors() {
    std::error_code failed;
    const std::filesystem::directory_iterator all("/proc/self/fd", failed);
    return failed ? 0 : static_cast<double>(std::distance(begin(all), end(all)) - 1); // its own
}

/// Seconds since the start of the machine are the 20th word behind the name, which is in brackets.
double startSeconds() {
    std::ifstream statFile("/proc/self/stat");
    const std::string stat(std::istreambuf_iterator<char>(statFile), {});
    std::size_t at = stat.rfind(')');
    for (int i = 0; i < 20 && at != std::string::npos; ++i) {
        at = stat.find(' ', at + 1);
    }
    std::ifstream machine("/proc/stat");
    std::string word;
    double booted = 0;
    while (machine >> word && word != "btime") {
    }
    machine >> booted;
    const double ticks = at == std::string::npos ? 0 : std::stod(stat.substr(at));
    return booted + ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace

std::vector<prometheus::MetricFamily> metricsOfProcess() {
    MetricList list;
    list.counter("process_cpu_seconds_total", "Processor time used, in seconds.",
                 processorSeconds());
    list.gauge("process_resident_memory_bytes", "Memory in use, in bytes.", residentBytes());
    list.gauge("process_open_fds", "Descriptors in use.", openDescriptors());
    list.gauge("process_start_time_seconds", "When the process was started, in Unix time.",
               startSeconds());
    return std::move(list).taken();
}

} // namespace OvixHttp
