#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "State/Frame.h"

struct pcap;

namespace OvixAgent {

/// The most bytes of a frame that the readers of captures accept.
inline constexpr std::size_t longestCapturedFrame = 262144;

/// Reads one capture of Ethernet frames: pcap or pcapng, with microseconds or nanoseconds.
///
/// Of a damaged file every whole frame before the damage is read; then reading ends, and
/// `problem()` names the damage.
class CaptureReader {
  public:
    /// Throws CaptureError when the file cannot be opened, is not a capture, or its link type is
    /// not Ethernet. `port` becomes the port of every frame.
    CaptureReader(std::uint32_t port, std::string path);

    /// The next frame, valid until the following call; null at the end.
    const Frame* next();

    /// Why reading ended early; empty when it did not.
    const std::string& problem() const noexcept { return problem_; }

    /// True when no time stamp can be finer than a microsecond. A pcapng file counts as finer: the
    /// resolution is up to each of its interfaces.
    bool hasMicroseconds() const noexcept { return hasMicroseconds_; }

    /// What to poll for the next frame of a pipe; -1 for a file, which never blocks.
    int waitDescriptor() const noexcept { return waitDescriptor_; }

    const std::string& path() const noexcept { return path_; }
    /// 0 when unknown, as for a pipe.
    std::uint64_t sizeBytes() const noexcept { return sizeBytes_; }
    std::uint64_t readBytes() const;

  private:
    struct Closer {
        void operator()(pcap* capture) const noexcept;
    };

    void refuseOtherLinkTypes() const;
    void stopAtDamage();

    std::string path_;
    std::unique_ptr<pcap, Closer> capture_;
    Frame frame_;
    std::string problem_;
    int waitDescriptor_ = -1;
    std::uint64_t frames_ = 0;
    std::uint64_t sizeBytes_ = 0;
    bool hasMicroseconds_ = false;
    bool atEnd_ = false;
};

} // namespace OvixAgent
