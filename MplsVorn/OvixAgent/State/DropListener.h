#pragma once

#include <string_view>

#include "State/Frame.h"

namespace OvixAgent {

/// Is called for dropped packets that their source may be answered about. `received` is the frame
/// as it came in; all bytes are borrowed.
class DropListener {
  public:
    DropListener() = default;
    DropListener(const DropListener&) = delete;
    DropListener& operator=(const DropListener&) = delete;
    virtual ~DropListener() = default;

    /// Too big for its port: `leaving` is the frame as it would have left, link header first, and
    /// `mtu` that of the port, without the link header.
    virtual void tooBig(const Frame& received, std::span<const std::uint8_t> leaving,
                        std::uint32_t mtu) = 0;

    /// Not delivered by IP routing, for one of the reasons in State/Fate.h.
    virtual void undelivered(const Frame& received, std::string_view reason) = 0;
};

} // namespace OvixAgent
