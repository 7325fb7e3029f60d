#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "State/Frame.h"

struct pcap_dumper;

namespace OvixAgent {

/// The unit in which a capture keeps time stamps. A capture keeps microseconds only when all that
/// is read keeps no more, so that no digit of a time stamp is lost.
enum class TimePrecision : std::uint8_t { microseconds, nanoseconds };

/// Writes one pcap of Ethernet frames. Errors of the file system throw CaptureError.
class CaptureWriter {
  public:
    /// Creates or overwrites the file; it is a whole, empty capture once closed.
    CaptureWriter(std::string path, TimePrecision precision);

    /// Writes the frame's bytes with its time and original length. Seconds wrap beyond the year
    /// 2106, as the format's 32-bit field does.
    void write(const Frame& frame);

    /// Writes out what is buffered, and reports what could not be written. Without it, destruction
    /// writes as far as it can and stays silent.
    void close();

    const std::string& path() const noexcept { return path_; }
    std::uint64_t frames() const noexcept { return frames_; }

  private:
    struct Closer {
        void operator()(pcap_dumper* dumper) const noexcept;
    };

    [[noreturn]] void fail(const char* what, int error) const;

    std::string path_;
    std::unique_ptr<pcap_dumper, Closer> dumper_;
    std::uint64_t frames_ = 0;
    TimePrecision precision_;
};

} // namespace OvixAgent
