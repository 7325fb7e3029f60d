#pragma once

#include <cstdint>
#include <optional>

#include "decoding/Routes.h"
#include "framing/FpmStream.h"

namespace OvixFpm {

/// What a connection has brought so far. Each message counts once.
struct MessageCounts {
    std::uint64_t newRoutes = 0;
    std::uint64_t withdrawals = 0;
    std::uint64_t nextHopGroups = 0; ///< RTM_NEWNEXTHOP and RTM_DELNEXTHOP, which have no effect
    std::uint64_t others = 0;        ///< messages of other types, which have no effect, either
    std::uint64_t refused = 0;       ///< what was skipped

    friend bool operator==(const MessageCounts&, const MessageCounts&) = default;
    MessageCounts& operator+=(const MessageCounts& more) noexcept {
        newRoutes += more.newRoutes;
        withdrawals += more.withdrawals;
        nextHopGroups += more.nextHopGroups;
        others += more.others;
        refused += more.refused;
        return *this;
    }
};

/// Decodes the bytes of one connection to changes of the routes, in zebra's order:
///
///     decoder.take(bytes);
///     while (auto event = decoder.next()) { apply or report *event }
///
/// A new connection needs a new decoder.
class FpmDecoder {
  public:
    using Event = Tessel::Result<RouteChange>;

    /// The next bytes, in any piece.
    void take(Bytes piece) { stream_.take(piece); }

    /// The next change, or the refusal of what was skipped; unset until more bytes have come.
    std::optional<Event> next();

    /// The stream is lost: the connection has to be closed.
    bool lost() const noexcept { return stream_.lost(); }

    const MessageCounts& counts() const noexcept { return counts_; }

  private:
    std::optional<Tessel::Result<NetlinkMessage>> nextMessage();
    std::optional<Event> event(const NetlinkMessage& message);
    Event route(const NetlinkMessage& message);
    Event counted(Tessel::Refused refused);

    FpmStream stream_;
    NetlinkMessages messages_{FpmFrame{}};
    MessageCounts counts_;
};

} // namespace OvixFpm
