#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Capture/CaptureReader.h"
#include "Config/Config.h"

namespace OvixAgent {

/// `--in PORT=CAPTURE`.
struct InputOption {
    std::string port;
    std::string path;
};

/// Opens the captures for their ports. Throws CaptureError when a port is not configured or a
/// capture cannot be used. Every port name is checked before any file is opened.
std::vector<CaptureReader> openInputs(const std::vector<InputOption>& inputs,
                                      const std::vector<PortConfig>& ports);

/// The frames of several captures in time order; frames of equal time in the order of the captures.
/// Frames of one capture keep their order whatever their times.
class CaptureMerge {
  public:
    explicit CaptureMerge(std::vector<CaptureReader> readers);

    /// What to poll before `look`, which then reads a frame without blocking; -1 when `next` does
    /// not block.
    int waitDescriptor() const noexcept;
    void look();

    /// The next frame, valid until the following call or `look`; null at the end.
    const Frame* next();

    /// True when no time stamp can be finer than a microsecond.
    bool hasMicroseconds() const;

    /// Which captures ended early and why, each once.
    std::vector<std::string> problems() const;

    /// How much of the input has been read, 0 to 1, by bytes; 0 when no size is known.
    double progress() const;

  private:
    /// The next frame of one capture.
    struct Head {
        CaptureTime time;
        std::size_t reader;
        const Frame* frame;
    };

    std::vector<CaptureReader> readers_;
    std::vector<Head> heads_;         ///< a heap; the earliest frame is at its top
    std::vector<std::size_t> toRead_; ///< readers to read from before the earliest is known
};

} // namespace OvixAgent
