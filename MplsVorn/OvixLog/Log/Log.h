#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

namespace OvixLog {

/// The log of a program: lines on standard error, written by a thread of its own. Logging does not
/// wait for whoever reads the log and does not throw, whatever has become of it; lines that could
/// not be written, or of a kind that came too often, are counted, and the log says so once it can.
/// Signals are blocked in its threads.
class Log {
  public:
    /// Every line begins with the program's name. Throws std::system_error when there can be no
    /// thread. SIGPIPE should be ignored.
    explicit Log(std::string program, int descriptor = STDERR_FILENO);
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    /// Writes what can be written at once.
    ~Log();

    /// Logs a line, without its end; see LineLimits for the kinds. May be called by any thread.
    void operator()(std::string_view kind, std::string_view line) noexcept;
    /// The same without the program's name and a limit, as traces are.
    void plain(std::string_view line) noexcept;

    /// Waits until everything logged so far has been written or lost, for a second at most.
    void drain() noexcept;

    /// Lines that were not written.
    std::uint64_t leftOut() const noexcept;

  private:
    class Sink;
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

} // namespace OvixLog
