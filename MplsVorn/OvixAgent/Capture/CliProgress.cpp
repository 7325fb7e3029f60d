#include "Capture/CliProgress.h"

#include <cassert>
#include <fmt/format.h>
#include <unistd.h>

namespace OvixAgent {

namespace {

constexpr std::chrono::milliseconds interval(100);
constexpr const char* eraseLine = "\r\x1b[K";

} // namespace

CliProgress CliProgress::onTerminal(bool quiet, const char* unit) {
    return {stderr, !quiet && isatty(STDERR_FILENO) == 1, Clock::now(), unit};
}

void CliProgress::show(std::uint64_t frames, double part, Clock::time_point now) {
    assert(part >= 0 && part <= 1);
    if (!isShown_ || now - shownAt_ < interval) {
        return;
    }
    shownAt_ = now;
    hasLine_ = true;
    print(fmt::format("{}{} {}, {:.0f} %", eraseLine, frames, unit_, part * 100));
}

/// A terminal that has gone is no reason to end the run.
void CliProgress::print(const std::string& text) {
    std::fputs(text.c_str(), stream_);
    std::fflush(stream_);
}

void CliProgress::clear() {
    if (hasLine_) {
        print(eraseLine);
        hasLine_ = false;
    }
}

} // namespace OvixAgent
