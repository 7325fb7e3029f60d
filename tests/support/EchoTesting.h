#pragma once

#include <optional>

#include "Answers/LspEcho.h"
#include "AnswersTesting.h"

namespace OvixAgent::Testing {

/// A TLV of an MPLS echo message, padded.
inline Bytes tlv(std::uint16_t type, const Bytes& value) {
    using namespace TestSupport::Raw;
    const auto length = static_cast<std::uint32_t>(value.size());
    return join({u16(type), u16(length), value, filled((4 - value.size() % 4) % 4, 0)});
}
inline Bytes fecStack(std::initializer_list<Bytes> fecs) {
    return tlv(1, TestSupport::Raw::join(fecs));
}
/// LDP bindings of 10.9.0.0/16 and 2001:db8:9::/48.
inline const Bytes ldp4 = tlv(1, {10, 9, 0, 0, 16});
inline const Bytes ldp6 = tlv(2, {0x20, 1, 0xd, 0xb8, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 48});
inline const Bytes nilFec = tlv(16, {0, 0, 0, 0});

/// A downstream detailed mapping: flags, the addresses of a router and of its interface, and
/// optionally labels.
inline Bytes mappingOf(const std::string& router, const std::string& interface,
                       std::optional<std::vector<std::uint32_t>> labels = std::nullopt,
                       std::uint8_t flags = 0) {
    using namespace TestSupport::Raw;
    const auto bytesOf = [](const std::string& text) {
        const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(text);
        const auto& bytes = address.bytes();
        return Bytes(bytes.begin(), bytes.begin() + address.bits() / 8);
    };
    const bool isIpv4 = router.find(':') == std::string::npos;
    const bool isNumbered = !interface.empty();
    const auto type = static_cast<std::uint8_t>((isIpv4 ? 1U : 3U) + (isNumbered ? 0U : 1U));
    Bytes subTlvs;
    if (labels) {
        for (const std::uint32_t label : *labels) {
            subTlvs = join({subTlvs, u32(label << 12U)});
        }
        subTlvs = tlv(2, subTlvs);
    }
    return tlv(20, join({{5, 220, type, flags},
                         bytesOf(router),
                         isNumbered ? bytesOf(interface) : Bytes{0, 0, 0, 0},
                         {0, 0},
                         u16(static_cast<std::uint32_t>(subTlvs.size())),
                         subTlvs}));
}

struct Echo {
    std::uint16_t version = 1;
    std::uint16_t flags = 0;
    std::uint8_t type = 1;
    std::uint8_t replyMode = 2;
    Bytes tlvs = fecStack({ldp4});
};

inline Bytes message(const Echo& echo) {
    using namespace TestSupport::Raw;
    return join({u16(echo.version),
                 u16(echo.flags),
                 {echo.type, echo.replyMode, 0, 0},
                 u32(0xdeadbeef),
                 u32(7),
                 u32(0xe0000001),
                 u32(0x80000000),
                 u32(0),
                 u32(0),
                 echo.tlvs});
}

/// A UDP datagram for 127.0.0.1 without a checksum.
inline Bytes echo4(const Bytes& payload, std::uint16_t sourcePort = 49152) {
    using namespace TestSupport::Raw;
    Ipv4 fields;
    fields.destination = 0x7f000001;
    fields.ttl = 1;
    return ipv4(fields, udp(sourcePort, 3503, payload));
}

/// A UDP datagram for ::ffff:127.0.0.1 with its checksum.
inline Bytes echo6(const Bytes& payload) {
    using namespace TestSupport::Raw;
    Bytes packet = ipv6({}, udp(49152, 3503, payload));
    const Bytes destination{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 127, 0, 0, 1};
    std::copy(destination.begin(), destination.end(), packet.begin() + 24);
    const auto checksum = static_cast<std::uint16_t>(~transportSum(packet));
    packet[46] = static_cast<std::uint8_t>(checksum >> 8U);
    packet[47] = static_cast<std::uint8_t>(checksum);
    return packet;
}

/// Label 100 is switched, 200 is popped; the router is the egress of 10.9.0.0/16 with implicit
/// null, of 10.8.0.0/16 with label 200, and of 2001:db8:9::/48 with explicit null. There are no IP
/// routes.
class FakeEchoTables : public EchoTables {
  public:
    EchoLabel label(Lumo::MplsLabel label) const override {
        if (label.value() == 100) {
            return {EchoLabel::Use::switched, downstreams};
        }
        return {label.value() == 200 ? EchoLabel::Use::popped : EchoLabel::Use::unknown};
    }
    std::optional<Lumo::MplsLabel> egressLabel(const Lumo::IpGenAddr& prefix,
                                               std::uint8_t length) const override {
        const std::string text = prefix.text() + "/" + std::to_string(length);
        if (text == "10.9.0.0/16") {
            return Lumo::implicitNull;
        }
        if (text == "10.8.0.0/16") {
            return Lumo::MplsLabel(200);
        }
        return text == "2001:db8:9::/48" ? std::optional(Lumo::ipv6ExplicitNull) : std::nullopt;
    }
    std::optional<std::vector<EchoDownstream>> nexthops(const Lumo::IpGenAddr&,
                                                        std::uint8_t) const override {
        return std::nullopt;
    }

    bool isOfTree(Lumo::MplsLabel label) const override { return label.value() == 600; }

    /// 10.255.0.1 and 2001:db8::ff are the port's, 10.255.0.9 is the router's.
    bool isOfPort(const Lumo::IpGenAddr& address, PortIndex) const override {
        return address == own.ipv4 || address == own.ipv6;
    }
    bool isOwn(const Lumo::IpGenAddr& address) const override {
        return isOfPort(address, 0) || address == Lumo::IpGenAddr::fromText("10.255.0.9");
    }

    std::vector<EchoDownstream> downstreams; ///< of label 100
};

inline constexpr CaptureTime at{1'600'000'000, 500'000'000};

inline Bytes replyTo(const Bytes& frame) {
    const auto received = readLabelledPacket(frame);
    return received && isMplsEcho(received->ip)
               ? lspEchoReply(*received, 0, at, FakeEchoTables(), own).packet
               : Bytes{};
}

/// Return code and subcode of a reply by IPv4 without options; none when there is no reply.
inline std::string codes(const Bytes& reply) {
    if (reply.empty()) {
        return "none";
    }
    return std::to_string(reply.at(34)) + "/" + std::to_string(reply.at(35));
}

} // namespace OvixAgent::Testing
