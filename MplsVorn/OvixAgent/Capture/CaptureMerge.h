#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Capture/CaptureReader.h"
#include "State/Frame.h"

namespace OvixAgent {

/// The frames of several captures in time order; frames of equal time in the order of the captures.
/// Frames of one capture always keep the order that they stand in.
class CaptureMerge {
  public:
    explicit CaptureMerge(std::vector<CaptureReader> readers);

    /// What to wait on before `look`, which then reads a frame without waiting for it; -1 when
    /// `next` keeps nobody waiting.
    int waitDescriptor() const noexcept;
    void look();

    /// The next frame, good until the following call or `look`; null at the end.
    const Frame* next();

    /// True when no frame's time stamp can be finer than a microsecond.
    bool hasMicroseconds() const;

    /// Which captures ended early and why, each once.
    std::vector<std::string> problems() const;

    /// The part of the input that has been read, 0 to 1, by bytes; 0 when no size is known.
    double progress() const;

  private:
    /// The earliest frame of a capture that has not been handed out.
    struct Head {
        CaptureTime time;
        std::size_t reader;
        const Frame* frame;
    };

    std::vector<CaptureReader> readers_;
    std::vector<Head> heads_;         ///< a heap, the frame to hand out next at its top
    std::vector<std::size_t> toRead_; ///< readers that have no frame in the heap and may have one
};

} // namespace OvixAgent
