#pragma once

#include <cstdint>
#include <string>

#include "Posix/FileDescriptor.h"
#include "Tessel/Result.h"

namespace OvixAgent {

/// Explains frames that the agent's recorder has kept, each by an `ovixctl explain` of its own that
/// lies beside the agent: a process that asks the agent at its control socket as an operator does,
/// with the lowest priority and bounded time. Used by one thread, but for stop().
class FrameExplainer {
  public:
    /// The agent's control socket, and the name of its shared tables, or empty.
    FrameExplainer(std::string control, std::string tables);

    /// A page. Refused when the frame is not kept any more, and with what ovixctl says.
    Tessel::Result<std::string> page(std::uint64_t sequence) const;

    /// Ends the explanation that is being made, and makes no others.
    void stop() const;

  private:
    struct Frame {
        std::string port;
        std::string capture; ///< of the frame alone
    };
    Tessel::Result<Frame> recorded(std::uint64_t sequence) const;
    bool isEnded(int process) const;

    std::string control_;
    std::string tables_;
    Posix::FileDescriptor stops_; ///< an event
};

} // namespace OvixAgent
