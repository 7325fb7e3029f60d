#include "decoding/FpmDecoder.h"

#include <linux/rtnetlink.h>
#include <utility>

#include "decoding/RouteReading.h"

namespace OvixFpm {

std::optional<FpmDecoder::Event> FpmDecoder::next() {
    while (auto item = nextItem()) {
        if (auto* refused = std::get_if<Refused>(&*item)) {
            return counted(std::move(*refused));
        }
        if (auto result = event(std::get<NetlinkMessage>(*item))) {
            return result;
        }
    }
    return std::nullopt;
}

/// The next message of the frame in hand, or of the frames that follow.
std::optional<FpmDecoder::FrameItem> FpmDecoder::nextItem() {
    for (;;) {
        if (auto item = messages_.next()) {
            return item;
        }
        auto frame = stream_.next();
        if (!frame) {
            return std::nullopt;
        }
        if (auto* refused = std::get_if<Refused>(&*frame)) {
            return std::move(*refused);
        }
        messages_ = NetlinkMessages(std::get<FpmFrame>(std::move(*frame)));
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
    try {
        RouteChange change = isNew ? newRoute(message.body) : deletedRoute(message.body);
        ++(isNew ? counts_.newRoutes : counts_.withdrawals);
        return change;
    } catch (const Tessel::RangeError& wrong) {
        return counted(Refused(message.offset, message.bytes, wrong.what()));
    }
}

FpmDecoder::Event FpmDecoder::counted(Refused refused) {
    ++counts_.refused;
    return refused;
}

} // namespace OvixFpm
