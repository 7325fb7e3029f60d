#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "State/Frame.h"

struct pcap;

namespace OvixAgent {

/// Reads one capture of Ethernet frames: pcap or pcapng, with microseconds or nanoseconds.
///
/// A file that is damaged in the middle gives every whole frame before the damage; the reader then
/// ends, and `problem` says so.
class CaptureReader {
  public:
    /// Throws CaptureError when the file cannot be opened, is no capture, or its link type is not
    /// Ethernet. `port` is handed on in every frame.
    CaptureReader(std::uint32_t port, std::string path);

    /// The next frame, good until the following call; null at the end.
    const Frame* next();

    /// What ended the reading early; empty while nothing has.
    const std::string& problem() const noexcept { return problem_; }

    /// True when no time stamp can be finer than a microsecond. A pcapng file counts as finer: the
    /// resolution is up to each of its interfaces.
    bool hasMicroseconds() const noexcept { return hasMicroseconds_; }

    /// What to wait on for the next frame of a pipe; -1 for a file, which keeps nobody waiting.
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
