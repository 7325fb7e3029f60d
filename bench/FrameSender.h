#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <vector>

#include "FrameBytes.h"
#include "Posix/FileDescriptor.h"

namespace Bench {

/// Labels of the frames of `count` flows are consecutive, from TableSamples' firstLabel on.
std::vector<TestSupport::Raw::Bytes> labelledFrames(std::uint32_t count);
/// To as many addresses of 10.9.0.0/16.
std::vector<TestSupport::Raw::Bytes> ipv4Frames(std::uint32_t count);

/// Sends made frames of 64 bytes on a link, one after the other, again and again.
class FrameSender {
  public:
    /// Throws std::runtime_error, as all functions do.
    FrameSender(const std::string& link, std::vector<TestSupport::Raw::Bytes> frames);
    FrameSender(const FrameSender&) = delete;
    FrameSender& operator=(const FrameSender&) = delete;

    void send(std::size_t count);
    /// As many as the link takes.
    void sendFor(std::chrono::milliseconds time);
    /// What is due is sent about every 200 us; `afterwards` is called each time.
    void sendFor(std::chrono::milliseconds time, std::uint64_t framesPerSecond,
                 const std::function<void()>& afterwards = {});

    /// Frames that the kernel has taken, ever.
    std::uint64_t sent() const noexcept { return sent_; }

  private:
    std::vector<TestSupport::Raw::Bytes> frames_;
    std::vector<iovec> extents_;
    std::vector<mmsghdr> messages_;
    std::size_t next_ = 0;
    std::uint64_t sent_ = 0;
    Posix::FileDescriptor socket_;
};

} // namespace Bench
