#pragma once

#include "State/Frame.h"

namespace OvixAgent {

/// Hears of frames that were too big for the port that they would have left by.
class TooBigListener {
  public:
    TooBigListener() = default;
    TooBigListener(const TooBigListener&) = delete;
    TooBigListener& operator=(const TooBigListener&) = delete;
    virtual ~TooBigListener() = default;

    /// `received` is the frame as it came in, `leaving` as it would have left, link header first;
    /// both are borrowed. `mtu` is without the link header.
    virtual void tooBig(const Frame& received, std::span<const std::uint8_t> leaving,
                        std::uint32_t mtu) = 0;
};

} // namespace OvixAgent
