#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Posix/FileDescriptor.h"

namespace OvixAgent {

/// The files of a TAP device (tuntap.txt of the kernel's documentation), which is created unless it
/// exists, and goes with the last of them.
class TapQueues {
  public:
    /// One file for each of `queues`, to which a program spreads flows. Where the kernel does not
    /// take the program there is one file all the same: its own choice would move a flow to the
    /// queue where the agent answers. 0: a device of one queue. Throws
    /// std::system_error, whose text names the step that failed.
    TapQueues(const std::string& device, std::uint32_t queues);

    /// Of the queue; -1 when there is none.
    int file(std::uint32_t queue) const noexcept {
        return queue < files_.size() ? files_[queue].value() : -1;
    }
    /// Why there are fewer than were asked for; empty when there are not.
    const std::string& problem() const noexcept { return problem_; }

  private:
    void open(const std::string& device, bool isOneOfSeveral);

    std::vector<Posix::FileDescriptor> files_;
    std::string problem_;
};

} // namespace OvixAgent
