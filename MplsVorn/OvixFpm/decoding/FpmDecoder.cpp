#include "decoding/FpmDecoder.h"

#include <linux/rtnetlink.h>
#include <utility>

#include "decoding/RouteReading.h"

namespace OvixFpm {

std::optional<FpmDecoder::Event> FpmDecoder::next() {
    while (const auto message = nextMessage()) {
        if (!*message) {
            return counted(message->refused());
        }
        if (auto result = event(message->value())) {
            return result;
        }
    }
    return std::nullopt;
}

/// The next message of the current frame, or of the frames that follow.
std::optional<Tessel::Result<NetlinkMessage>> FpmDecoder::nextMessage() {
    for (;;) {
        if (auto message = messages_.next()) {
            return message;
        }
        auto frame = stream_.next();
        if (!frame) {
            return std::nullopt;
        }
        if (!*frame) {
            return frame->refused();
        }
        messages_ = NetlinkMessages(std::move(frame->value()));
    }
}

std::optional<FpmDecoder::Event> FpmDecoder::event(const NetlinkMessage& message) {
    switch (message.type) {
    case RTM_NEWROUTE:
    case RTM_DELROUTE:
        return route(message);
    case RTM_NEWNEXTHOP:
    case RTM_DELNEXTHOP:
        ++counts_.nextHopGroups;
        return std::nullopt;
    default:
        ++counts_.others;
        return std::nullopt;
    }
}

FpmDecoder::Event FpmDecoder::route(const NetlinkMessage& message) {
    const bool isNew = message.type == RTM_NEWROUTE;
    Event change = isNew ? readNewRoute(message.body) : readDeletedRoute(message.body);
    if (!change) {
        return counted(skipped(message.offset, message.bytes, change.refused().what));
    }
    ++(isNew ? counts_.newRoutes : counts_.withdrawals);
    return change;
}

FpmDecoder::Event FpmDecoder::counted(Tessel::Refused refused) {
    ++counts_.refused;
    return refused;
}

} // namespace OvixFpm
