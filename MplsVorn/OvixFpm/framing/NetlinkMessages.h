#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <variant>

#include "framing/Bytes.h"
#include "framing/FpmStream.h"
#include "framing/Refused.h"

namespace OvixFpm {

/// One netlink message. `bytes` is all of it, with the header; it lasts as long as the frame.
struct NetlinkMessage {
    std::uint64_t offset; ///< of its first byte in the stream
    std::uint16_t type;   ///< RTM_NEWROUTE and so on
    Bytes bytes;
    Bytes body; ///< behind the header
};

/// Walks the messages of one frame, each at a multiple of four bytes (NLMSG_ALIGN). Where a length
/// cannot be right the rest of the frame is reported as one and skipped, since nobody knows where
/// the next message begins.
class NetlinkMessages {
  public:
    explicit NetlinkMessages(FpmFrame frame) noexcept : frame_(std::move(frame)) {}

    /// The next message or what is wrong; nothing at the end of the frame.
    std::optional<std::variant<NetlinkMessage, Refused>> next();

  private:
    FpmFrame frame_;
    std::size_t read_ = 0;
};

} // namespace OvixFpm
