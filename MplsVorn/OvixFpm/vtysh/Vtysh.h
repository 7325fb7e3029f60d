#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixFpm {

/// A run of FRR's vtysh, without a shell: what it prints to standard output, read as it comes.
/// It is killed when it takes too long or prints too much, and with this object.
class Vtysh {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::size_t longestOutput = std::size_t{16} << 20U;

    /// The program with its arguments; the first is its path.
    explicit Vtysh(const std::vector<std::string>& command,
                   std::chrono::milliseconds patience = std::chrono::seconds(5));
    Vtysh(const Vtysh&) = delete;
    Vtysh& operator=(const Vtysh&) = delete;
    ~Vtysh() { kill(); }

    /// To be polled for input; -1 when there is no more to come.
    int descriptor() const noexcept { return output_.value(); }

    /// Reads what has come. Set when the run has ended: what was printed, or why that is not to be
    /// had: not started, another exit code than 0, too long or too much. To be called every 20 ms
    /// while there is no descriptor, and otherwise when it is readable or a second has passed.
    std::optional<Tessel::Result<std::string>> receive();

  private:
    void kill() noexcept;
    Tessel::Refused refuse(const std::string& why);
    bool read();

    std::string name_;
    pid_t process_ = -1;
    Posix::FileDescriptor output_;
    std::string text_;
    Clock::time_point end_;
    std::string problem_; ///< why it could not be started; empty when it was
};

} // namespace OvixFpm
