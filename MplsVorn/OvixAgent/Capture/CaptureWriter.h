#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "State/Frame.h"

struct pcap_dumper;

namespace OvixAgent {

/// The unit of a capture's time stamps. A run writes microseconds only when no input is finer, so
/// that no digit of a time stamp is lost.
enum class TimePrecision : std::uint8_t { microseconds, nanoseconds };

/// A port that writes its frames to a pcap file. Errors of the file system throw CaptureError.
class CaptureWriter final : public TransmitPort {
  public:
    /// Creates or overwrites the file, which is a valid empty capture once closed.
    CaptureWriter(std::string path, TimePrecision precision);

    /// Writes the frame's bytes with its time and original length. Seconds wrap in 2106, as the
    /// format's 32-bit field does.
    void transmit(const Frame& frame) override;

    /// Writes what is buffered and reports errors; the destructor does not report them.
    void close();

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
