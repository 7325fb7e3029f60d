#include "Answers/LspEchoReply.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "Wire/LspEcho.h"

namespace OvixAgent {

namespace {

using Wire::LspEchoTlv;
namespace Downstream = Wire::LspEchoDownstream;

void append(std::vector<std::uint8_t>& to, Wire::Bytes bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

Wire::Bytes bytesOf(const Lumo::IpGenAddr& address) noexcept {
    assert(address.family() != Lumo::IpFamily::none);
    return Wire::Bytes(address.bytes().data(), address.bits() / 8);
}

/// Label, TC, bottom of stack, and the protocol that distributed the label, which the tables do not
/// hold.
std::vector<std::uint8_t> labelBytes(const std::vector<Lumo::MplsLabel>& labels) {
    constexpr std::uint8_t unknownProtocol = 0;
    std::vector<std::uint8_t> bytes(labels.size() * Downstream::labelSize);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const bool isLast = i + 1 == labels.size();
        Lumo::MplsLabelEntry(labels[i], 0, isLast, unknownProtocol)
            .store(bytes.data() + i * Downstream::labelSize);
    }
    return bytes;
}

/// The two addresses of a mapping. Without a next hop the interface counts as unnumbered, of the
/// index 0 (RFC 8029 section 3.4).
std::vector<std::uint8_t> addressBytes(const Lumo::IpGenAddr& nexthop) {
    if (nexthop.family() == Lumo::IpFamily::none) {
        return {127, 0, 0, 1, 0, 0, 0, 0};
    }
    std::vector<std::uint8_t> bytes;
    append(bytes, bytesOf(nexthop)); // of the router
    append(bytes, bytesOf(nexthop)); // of its interface
    return bytes;
}

Downstream::AddressType addressType(const Lumo::IpGenAddr& address) noexcept {
    switch (address.family()) {
    case Lumo::IpFamily::ipv4:
        return Downstream::ipv4Numbered;
    case Lumo::IpFamily::ipv6:
        return Downstream::ipv6Numbered;
    default:
        return Downstream::ipv4Unnumbered;
    }
}

void addDownstream(std::vector<std::uint8_t>& reply, const EchoDownstream& downstream,
                   const EchoVerdict& verdict) {
    static constexpr std::array<std::uint8_t, 4> pop{2, 0, 0, 0}; // without a peer, or the FEC
    std::vector<std::uint8_t> subTlvs;
    LspEchoTlv::add(subTlvs, LspEchoTlv::downstreamLabelStack, labelBytes(downstream.labels));
    for (std::size_t i = 0; i < verdict.endedFecs; ++i) {
        LspEchoTlv::add(subTlvs, LspEchoTlv::fecStackChange, pop);
    }

    std::vector<std::uint8_t> value{0, 0, addressType(downstream.nexthop), 0};
    Lumo::NetU16(downstream.mtu).store(value.data());
    append(value, addressBytes(downstream.nexthop));
    value.insert(value.end(), {static_cast<std::uint8_t>(verdict.code), verdict.depth, 0, 0});
    Lumo::NetU16(static_cast<std::uint16_t>(subTlvs.size())).store(&value.end()[-2]);
    append(value, subTlvs);
    LspEchoTlv::add(reply, LspEchoTlv::downstreamDetailedMapping, value);
}

/// As RFC 4379 section 3.3 has it, without multipath information.
void addDeprecatedDownstream(std::vector<std::uint8_t>& reply, const EchoDownstream& downstream) {
    std::vector<std::uint8_t> value{0, 0, addressType(downstream.nexthop), 0};
    Lumo::NetU16(downstream.mtu).store(value.data());
    append(value, addressBytes(downstream.nexthop));
    value.insert(value.end(), 4, 0);
    append(value, labelBytes(downstream.labels));
    LspEchoTlv::add(reply, LspEchoTlv::downstreamMapping, value);
}

/// On request, or when the mapping of the request is another interface's.
bool reportsArrival(const LspEchoRequest& request, const EchoVerdict& verdict) noexcept {
    return (request.mapping && request.mapping->wantsInterface) ||
           verdict.code == EchoReturnCode::downstreamMismatch ||
           verdict.code == EchoReturnCode::unknownUpstream;
}

void addArrival(std::vector<std::uint8_t>& reply, const EchoArrival& arrival) {
    std::vector<std::uint8_t> value{addressType(arrival.interface), 0, 0, 0};
    append(value, addressBytes(arrival.interface));
    append(value, arrival.labels);
    LspEchoTlv::add(reply, LspEchoTlv::interfaceAndLabelStack, value);
}

/// Adds to a reply what it has room for.
class Filling {
  public:
    Filling(EchoReply& reply, std::size_t room) noexcept : reply_(&reply), room_(room) {}

    /// `append` is given the bytes to append to.
    template <typename Append>
    void add(const Append& append) {
        const std::size_t before = reply_->bytes.size();
        append(reply_->bytes);
        if (reply_->bytes.size() > room_) {
            reply_->bytes.resize(before);
            ++reply_->leftOut;
        }
    }

  private:
    EchoReply* reply_;
    std::size_t room_;
};

} // namespace

bool reportsDownstreams(const LspEchoRequest& request, const EchoVerdict& verdict) noexcept {
    return request.mapping && !verdict.downstreams.empty();
}

EchoReply echoReply(const LspEchoRequest& request, const EchoVerdict& verdict,
                    const EchoArrival& arrival, std::uint64_t received, std::size_t room) {
    EchoReply reply{std::vector<std::uint8_t>(Wire::LspEcho::size), 0};
    const Wire::LspEchoWriter header{std::span(reply.bytes)};
    // Each detailed mapping has a return code of its own.
    const bool hasDownstreams = reportsDownstreams(request, verdict);
    const bool isDeprecated = request.mapping && request.mapping->isDeprecated;
    const bool hasOwnCodes = hasDownstreams && !isDeprecated;
    const EchoReturnCode code = hasOwnCodes ? EchoReturnCode::inDownstreamMapping : verdict.code;
    header.messageIs(Wire::LspEchoWriter::reply, request.replyMode);
    header.returnCodeIs(static_cast<std::uint8_t>(code), hasOwnCodes ? 0 : verdict.depth);
    std::copy(request.returned.begin(), request.returned.end(), header.returned().begin());
    header.timeReceivedIs(received);
    using Bytes = std::vector<std::uint8_t>;
    Filling filling(reply, room);
    if (verdict.code == EchoReturnCode::tlvNotUnderstood) {
        filling.add([&](Bytes& bytes) {
            LspEchoTlv::add(bytes, LspEchoTlv::erroredTlvs, request.notUnderstood);
        });
    }
    if (reportsArrival(request, verdict)) {
        filling.add([&](Bytes& bytes) { addArrival(bytes, arrival); });
    }
    for (std::size_t i = 0; hasDownstreams && i < verdict.downstreams.size(); ++i) {
        const EchoDownstream& downstream = verdict.downstreams[i];
        filling.add([&](Bytes& bytes) {
            isDeprecated ? addDeprecatedDownstream(bytes, downstream)
                         : addDownstream(bytes, downstream, verdict);
        });
    }
    if (!request.pads.empty()) {
        filling.add([&](Bytes& bytes) { append(bytes, request.pads); });
    }
    return reply;
}

} // namespace OvixAgent
