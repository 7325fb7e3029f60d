#pragma once

#include <cstdint>
#include <optional>
#include <variant>

#include "decoding/Routes.h"
#include "framing/Bytes.h"
#include "framing/FpmStream.h"
#include "framing/NetlinkMessages.h"
#include "framing/Refused.h"

namespace OvixFpm {

/// What has come out of a connection so far. Each message counts once.
struct MessageCounts {
    std::uint64_t newRoutes = 0;
    std::uint64_t withdrawals = 0;
    std::uint64_t nextHopGroups = 0; ///< RTM_NEWNEXTHOP and RTM_DELNEXTHOP, which have no effect
    std::uint64_t others = 0;        ///< messages of other types, which have none either
    std::uint64_t refused = 0;       ///< what was reported as Refused

    friend bool operator==(const MessageCounts&, const MessageCounts&) = default;
};

/// From the bytes of one connection to changes of the routes, in the order zebra made them:
///
///     decoder.take(bytes);
///     while (auto event = decoder.next()) { apply or report *event }
///
/// A connection that is made anew needs a new decoder.
class FpmDecoder {
  public:
    using Event = std::variant<RouteChange, Refused>;

    /// The next bytes, in any piece.
    void take(Bytes piece) { stream_.take(piece); }

    /// The next change, or what was skipped; nothing until more bytes have come. Throws nothing
    /// because of what the bytes are.
    std::optional<Event> next();

    /// The stream cannot be followed any more: the connection is to be closed.
    bool lost() const noexcept { return stream_.lost(); }

    const MessageCounts& counts() const noexcept { return counts_; }

  private:
    using FrameItem = std::variant<NetlinkMessage, Refused>;

    std::optional<FrameItem> nextItem();
    std::optional<Event> event(const NetlinkMessage& message);
    Event route(const NetlinkMessage& message);
    Event counted(Refused refused);

    FpmStream stream_;
    NetlinkMessages messages_{FpmFrame{}};
    MessageCounts counts_;
};

} // namespace OvixFpm
