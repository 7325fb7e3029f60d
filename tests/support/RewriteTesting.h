#pragma once

#include <optional>
#include <string>

#include "FrameBytes.h"
#include "Ovix/rewrite/MplsRewriteHelper.h"
#include "Ovix/rewrite/MplsRewrites.h"

namespace TestSupport {

/// A label operation with the bytes it looks at.
class Operation {
  public:
    Operation(const std::vector<std::uint32_t>& labels, std::optional<std::uint8_t> tc = {},
              std::uint8_t ttl = Lumo::UnboundedMplsLabelOperation::defaultTtl)
        : tc_(tc), ttl_(ttl) {
        for (const std::uint32_t label : labels) {
            const Raw::Bytes bytes = Raw::u32(label);
            packed_.insert(packed_.end(), bytes.begin() + 1, bytes.end());
        }
    }

    Lumo::UnboundedMplsLabelOperation get() const {
        Lumo::UnboundedMplsLabelOperation operation(packed_);
        operation.tc = tc_;
        operation.ttl = ttl_;
        return operation;
    }

  private:
    Raw::Bytes packed_;
    std::optional<std::uint8_t> tc_;
    std::uint8_t ttl_;
};

inline Ptr<Ovix::RewriteInfo> swapTo(const Operation& operation,
                                     Mpls::TtlMode mode = Mpls::TtlMode::uniform) {
    return Tessel::make<Ovix::MplsSwapRewriteInfo>(operation.get(), mode);
}
inline Ptr<Ovix::RewriteInfo> push(const Operation& operation,
                                   Mpls::TtlMode mode = Mpls::TtlMode::uniform) {
    return Tessel::make<Ovix::MplsIpPushRewriteInfo>(operation.get(), mode);
}
inline Ptr<Ovix::RewriteInfo> pop(Mpls::TtlMode mode = Mpls::TtlMode::uniform,
                                  Mpls::PayloadType payload = Mpls::PayloadType::automatic) {
    return Tessel::make<Ovix::MplsPopRewriteInfo>(payload, mode);
}
inline Ptr<Ovix::RewriteInfo> age() {
    return Tessel::make<Ovix::MplsTtlRewriteInfo>();
}

inline Ptr<Ovix::RewriteImpl> implOf(const Ptr<Ovix::RewriteInfo>& info) {
    const std::string_view name = info->typeName().text();
    return name == "MplsSwap"     ? Ovix::MplsSwapRewriteImpl::fromInfo(info)
           : name == "MplsPop"    ? Ovix::MplsPopRewriteImpl::fromInfo(info)
           : name == "MplsIpPush" ? Ovix::MplsIpPushRewriteImpl::fromInfo(info)
                                  : Ovix::MplsTtlRewriteImpl::fromInfo(info);
}

/// A packet under rewrite with 0xa5 in the buffer before it, and behind what it starts with.
class Rewritten {
  public:
    static constexpr std::size_t before = 124;
    static constexpr std::size_t behind = 64;

    explicit Rewritten(const Raw::Bytes& bytes, Ovix::PktHdrType outer = Ovix::PktHdrType::mpls,
                       bool trailer = false)
        : trailer_(trailer),
          context_(Tessel::make<Ovix::RoutingContext>(
              1U,
              Tessel::make<Ovix::PacketContext>(
                  Lumo::globalPktManager()->newPkt(Raw::join(
                      {Raw::filled(before, 0xa5), bytes, Raw::filled(trailer ? behind : 0, 0xa5)})),
                  outer),
              nullptr)),
          start_(pkt().headroom() + before) {
        pkt().popFront(before);
    }

    /// Applies the rewrites in turn; the reason of the first that fails, or "".
    std::string apply(const std::vector<Ptr<Ovix::RewriteInfo>>& infos) {
        for (const auto& info : infos) {
            if (const auto failed = implOf(info)->apply(context_)) {
                return std::string(failed->reason());
            }
        }
        return "";
    }

    Lumo::Pkt& pkt() const { return *context().pkt(); }
    Ovix::PacketContext& context() const { return *context_->packetContext(); }
    const Ptr<Ovix::RoutingContext>& routingContext() const { return context_; }

    /// The packet as it stands, without the trailer.
    Raw::Bytes bytes() const {
        const auto data = pkt().data();
        return {data.begin(), data.end() - (trailer_ ? behind : 0)};
    }

    /// Whether the bytes around it are as they were: those before the packet, unless it has taken
    /// them up, and the trailer.
    bool surroundingsIntact() const {
        const std::size_t room = pkt().headroom();
        const std::size_t from = start_ - before;
        const auto data = pkt().data();
        const std::uint8_t* buffer = data.data() - room;
        for (std::size_t at = from; at < room && at < start_; ++at) {
            if (buffer[at] != 0xa5) {
                return false;
            }
        }
        for (std::size_t at = trailer_ ? data.size() - behind : data.size(); at < data.size();
             ++at) {
            if (data[at] != 0xa5) {
                return false;
            }
        }
        return true;
    }

  private:
    bool trailer_;
    Ptr<Ovix::RoutingContext> context_;
    std::size_t start_;
};

} // namespace TestSupport
