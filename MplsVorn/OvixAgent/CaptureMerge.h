#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "CaptureReader.h"
#include "Frame.h"

namespace OvixAgent {

/// The frames of several captures in time order; frames of equal time in the order of the captures.
/// Frames of one capture always keep the order that they stand in.
class CaptureMerge {
  public:
    explicit CaptureMerge(std::vector<CaptureReader> readers);

    /// The next frame, good until the following call; null at the end.
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

    void pull(std::size_t reader);

    std::vector<CaptureReader> readers_;
    std::vector<Head> heads_; ///< a heap, the frame to hand out next at its top
    std::size_t lastReader_;
};

} // namespace OvixAgent
