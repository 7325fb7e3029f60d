#include "vtysh/VtyshWatch.h"

#include <algorithm>
#include <utility>

namespace OvixFpm {

VtyshWatch::VtyshWatch(std::string daemon, Settings settings)
    : daemon_(std::move(daemon)), settings_(std::move(settings)) {}

int VtyshWatch::timeoutMs() const {
    constexpr int whileEnding = 20;
    constexpr int whileRunning = 1000;
    if (run_) {
        return run_->descriptor() < 0 ? whileEnding : whileRunning;
    }
    if (!hasQuestions()) {
        return whileRunning;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(nextAt_ - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

void VtyshWatch::serve() {
    if (!run_ && hasQuestions() && Clock::now() >= nextAt_) {
        start();
    }
    if (!run_) {
        return;
    }
    if (const auto printed = run_->receive()) {
        run_.reset();
        nextAt_ = Clock::now() + settings_.every;
        take(*printed);
    }
}

void VtyshWatch::start() {
    std::vector<std::string> command{settings_.vtysh, "-d", daemon_};
    if (!settings_.socketDirectory.empty()) {
        command.insert(command.end(), {"--vty_socket", settings_.socketDirectory});
    }
    for (const std::string& question : questions()) {
        command.insert(command.end(), {"-c", question});
    }
    run_.emplace(command, settings_.patience);
}

} // namespace OvixFpm
