#pragma once

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "publishing/Companion.h"
#include "vtysh/Vtysh.h"

namespace OvixFpm {

/// Asks a daemon of FRR by vtysh every now and then.
class VtyshWatch : public Companion {
  public:
    using Clock = std::chrono::steady_clock;

    struct Settings {
        std::string vtysh = "/usr/bin/vtysh";
        std::string socketDirectory; ///< of FRR's vty sockets; empty: vtysh's default
        std::chrono::milliseconds every{1000};
        std::chrono::milliseconds patience{5000};
    };

    int descriptor() const noexcept final { return run_ ? run_->descriptor() : -1; }
    int timeoutMs() const final;
    void serve() final;

  protected:
    VtyshWatch(std::string daemon, Settings settings);

    virtual bool hasQuestions() const { return true; }
    /// What to ask now.
    virtual std::vector<std::string> questions() = 0;
    /// What was printed, or why that is not to be had.
    virtual void take(const Tessel::Result<std::string>& printed) = 0;
    /// There is more to ask than was asked.
    void askAtOnce() { nextAt_ = Clock::now(); }
    /// What was printed may be different before long.
    void askWithin(std::chrono::milliseconds time) {
        nextAt_ = std::min(nextAt_, Clock::now() + time);
    }

  private:
    void start();

    std::string daemon_;
    Settings settings_;
    std::optional<Vtysh> run_;
    Clock::time_point nextAt_;
};

} // namespace OvixFpm
