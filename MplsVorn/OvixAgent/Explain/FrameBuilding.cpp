#include "Explain/FrameBuilding.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>
#include <optional>
#include <utility>

#include "Config/ConfigText.h"
#include "Explain/HeaderWords.h"
#include "Explain/MadePacket.h"
#include "Lumo/MplsLabel.h"
#include "Lumo/Pkt.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LspEcho.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// For documentation (RFC 7042 section 2.1.2).
constexpr Lumo::EthAddr someStation{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01};

struct Builder {
    FrameDefaults defaults;
    Lumo::EthAddr destination{};
    Lumo::EthAddr source = someStation;
    std::vector<Wire::Tag> tags;
    std::vector<Lumo::MplsLabelEntry> labels;
    std::optional<std::uint32_t> controlWord;
    std::optional<Bytes> innerEthernet;
    std::optional<Bytes> packet; ///< of IP
    std::string comment;
    std::size_t last = 0; ///< of the kinds of headers, the one taken last, from 1

    void takeMac(HeaderWords& words);
    void takeVlan(HeaderWords& words);
    void takeLabel(HeaderWords& words);
    void takeControlWord(HeaderWords& words);
    void takeEthernet(HeaderWords& words);
    void takeIp(HeaderWords& words);
    void makeUp();
    Bytes built();
};

void put(Bytes& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}
void put16(Bytes& to, std::uint64_t value) {
    to.push_back(static_cast<std::uint8_t>(value >> 8U));
    to.push_back(static_cast<std::uint8_t>(value));
}

void Builder::takeMac(HeaderWords& words) {
    destination = words.takeMac("the destination");
    source = words.takeIf("from") ? words.takeMac("the source") : source;
}

void Builder::takeVlan(HeaderWords& words) {
    const auto id = words.takeNumber("the VLAN id", 4094);
    const auto priority = words.takeIf("priority") ? words.takeNumber("the priority", 7) : 0;
    tags.push_back({Lumo::NetU16(Wire::EtherType::vlan),
                    Lumo::NetU16(static_cast<std::uint16_t>(priority << 13U | id))});
}

/// L[/ttl N][/tc N]; slashes and blanks stand before what follows.
void Builder::takeLabel(HeaderWords& words) {
    const auto label = words.takeNumber("the label", Lumo::MplsLabel::max);
    std::uint64_t ttl = 64;
    std::uint64_t tc = 0;
    while (!words.empty()) {
        if (words.takeIf("ttl")) {
            words.requireFirst("the TTL");
            ttl = words.takeNumber("the TTL", 255);
        } else if (words.takeIf("tc")) {
            words.requireFirst("the traffic class");
            tc = words.takeNumber("the traffic class", 7);
        } else {
            break;
        }
    }
    labels.emplace_back(Lumo::MplsLabel(static_cast<std::uint32_t>(label)),
                        static_cast<std::uint8_t>(tc), false, static_cast<std::uint8_t>(ttl));
}

void Builder::takeControlWord(HeaderWords& words) {
    if (labels.empty()) {
        throw WordRefused{words.place(), "a control word without a label above it"};
    }
    controlWord =
        words.empty()
            ? 0U
            : static_cast<std::uint32_t>(words.takeNumber("the control word", 0xffffffff));
}

void Builder::takeEthernet(HeaderWords& words) {
    const Lumo::EthAddr to = words.takeMac("the destination");
    const Lumo::EthAddr from = words.takeIf("from") ? words.takeMac("the source") : someStation;
    innerEthernet.emplace();
    put(*innerEthernet, to);
    put(*innerEthernet, from);
}

std::uint16_t takePort(HeaderWords& words) {
    return static_cast<std::uint16_t>(words.takeNumber("the port", 0xffff));
}

MadeTransport takeTransport(HeaderWords& words, bool isUdp) {
    MadeTransport transport{isUdp ? Wire::IpProtocol::udp : Wire::IpProtocol::tcp, 49152, 9};
    transport.destination = takePort(words);
    if (words.takeIf(">")) {
        transport.source = std::exchange(transport.destination, takePort(words));
    }
    return transport;
}

/// The prefix that it asks about; a slash stands before the length.
void takeLspPing(HeaderWords& words, MadePacket& fields) {
    const Lumo::IpGenAddr prefix = words.takeAddress("the prefix of the FEC");
    const auto length = words.takeNumber("the length of the prefix", prefix.bits());
    fields.transport = {Wire::IpProtocol::udp, 49152, Wire::lspEchoPort};
    fields.payload = lspPing(Lumo::IpGenPrefix::of(prefix, static_cast<std::uint8_t>(length)));
}

void takeIpField(HeaderWords& words, MadePacket& fields) {
    const std::size_t at = words.place();
    const std::string_view word = words.take("a field");
    const bool isTransport = word == "udp" || word == "tcp";
    const bool isProtocol = isTransport || word == "proto" || word == "lsp-ping";
    words.requireFirst(isProtocol ? "the protocol" : word);
    if (isTransport) {
        fields.transport = takeTransport(words, word == "udp");
    } else if (word == "lsp-ping") {
        takeLspPing(words, fields);
    } else if (word == "proto") {
        fields.transport.protocol =
            static_cast<std::uint8_t>(words.takeNumber("the protocol", 0xff));
    } else if (word == "ttl") {
        fields.ttl = static_cast<std::uint8_t>(words.takeNumber("the TTL", 0xff));
    } else if (word == "tos") {
        fields.trafficClass = static_cast<std::uint8_t>(words.takeNumber("the class", 0xff));
    } else if (word == "size") {
        fields.size = words.takeNumber("the size", 65535);
    } else if (word == "df") {
        fields.dontFragment = true;
    } else {
        constexpr std::array<std::string_view, 8> known{"udp", "tcp", "lsp-ping", "proto",
                                                        "ttl", "tos", "size",     "df"};
        throw WordRefused{
            at, fmt::format("{} is not known here{}", inQuotes(word), suggestion(word, known))};
    }
}

void Builder::takeIp(HeaderWords& words) {
    MadePacket fields;
    const std::size_t at = words.place();
    fields.source = words.takeAddress("the source");
    if (!words.takeIf(">")) {
        throw WordRefused{words.place(), "\">\" and the destination are missing"};
    }
    fields.destination = words.takeAddress("the destination");
    if (fields.source.family() != fields.destination.family()) {
        throw WordRefused{at, "source and destination are of different families"};
    }
    while (!words.empty()) {
        takeIpField(words, fields);
    }
    packet = ipPacket(fields);
    if (fields.size != 0 && fields.size < packet->size()) {
        throw WordRefused{at, fmt::format("a size of {}: the headers alone have {} bytes",
                                          fields.size, packet->size())};
    }
}

/// What the words leave out, and the frame cannot do without; says so.
void Builder::makeUp() {
    if (packet) {
        return;
    }
    if (innerEthernet) {
        comment = "made up, as the words name no packet: the pseudowire's Ethernet frame is of ARP "
                  "(type 0x0806), and empty";
    } else if (labels.empty()) {
        comment = "made up, as the words name neither labels nor a packet: the EtherType is of "
                  "IPv4, with nothing behind it";
    } else {
        MadePacket fields;
        fields.source = Lumo::IpGenAddr::fromText("192.0.2.1");
        fields.destination = Lumo::IpGenAddr::fromText("192.0.2.2");
        fields.transport = {Wire::IpProtocol::udp, 49152, 9};
        packet = ipPacket(fields);
        comment = fmt::format("made up, as the words name no packet: {} is an IPv4 packet from "
                              "192.0.2.1 to 192.0.2.2, UDP port 9",
                              controlWord ? "behind the control word" : "beneath the labels");
    }
}

Bytes Builder::built() {
    makeUp();
    Bytes frame;
    put(frame, destination);
    put(frame, source);
    for (const Wire::Tag tag : tags) {
        put16(frame, tag.tpid.value());
        put16(frame, tag.tci.value());
    }
    const bool isIpv6 = packet && Wire::ipVersion(*packet) == 6;
    const std::uint16_t ipType = isIpv6 ? Wire::EtherType::ipv6 : Wire::EtherType::ipv4;
    put16(frame, labels.empty() ? ipType : Wire::EtherType::mpls);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const Lumo::MplsLabelEntry entry(labels[i].label(), labels[i].tc(), i + 1 == labels.size(),
                                         labels[i].ttl());
        std::array<std::uint8_t, Lumo::MplsLabelEntry::size> bytes{};
        entry.store(bytes.data());
        put(frame, bytes);
    }
    if (controlWord) {
        put16(frame, *controlWord >> 16U);
        put16(frame, *controlWord & 0xffffU);
    }
    if (innerEthernet) {
        put(frame, *innerEthernet);
        put16(frame, packet ? ipType : Wire::EtherType::arp);
    }
    if (packet) {
        put(frame, *packet);
    }
    return frame;
}

struct HeaderKind {
    std::string_view word;
    void (Builder::*take)(HeaderWords& words);
};
constexpr std::array<HeaderKind, 6> headerKinds{{
    {"mac", &Builder::takeMac},
    {"vlan", &Builder::takeVlan},
    {"label", &Builder::takeLabel},
    {"control-word", &Builder::takeControlWord},
    {"ethernet", &Builder::takeEthernet},
    {"ip", &Builder::takeIp},
}};

void takeHeader(Builder& builder, HeaderWords& words) {
    const std::size_t at = words.place();
    const std::string_view word = words.take("a header");
    const auto kind = std::find_if(headerKinds.begin(), headerKinds.end(),
                                   [&](const HeaderKind& known) { return known.word == word; });
    if (kind == headerKinds.end()) {
        std::array<std::string_view, headerKinds.size()> known;
        std::transform(headerKinds.begin(), headerKinds.end(), known.begin(),
                       [](const HeaderKind& each) { return each.word; });
        throw WordRefused{
            at, fmt::format("{} is no header{}", inQuotes(word), suggestion(word, known))};
    }
    // Only tags and labels come several times; everything else in this order.
    const auto order = static_cast<std::size_t>(kind - headerKinds.begin()) + 1;
    if (order < builder.last || (order == builder.last && word != "vlan" && word != "label")) {
        throw WordRefused{
            at, fmt::format("{} {}", inQuotes(word),
                            order == builder.last ? "is given twice" : "belongs further out")};
    }
    builder.last = order;
    (builder.*kind->take)(words);
    if (!words.empty()) {
        const std::size_t place = words.place();
        throw WordRefused{place, fmt::format("{} is too much here", inQuotes(words.take("")))};
    }
}

} // namespace

bool beginsWithHeader(std::string_view text) noexcept {
    const std::string_view word = text.substr(0, text.find(' '));
    return std::any_of(headerKinds.begin(), headerKinds.end(),
                       [&](const HeaderKind& known) { return known.word == word; });
}

Tessel::Result<GivenFrame> buildFrame(std::string_view text, PortIndex port,
                                      const FrameDefaults& defaults) {
    Builder builder;
    builder.destination = defaults.destination;
    try {
        for (HeaderWords& words : HeaderWords::of(text)) {
            takeHeader(builder, words);
        }
        Bytes bytes = builder.built();
        if (bytes.size() > Lumo::Pkt::maxBytes) {
            return Tessel::Refused{
                fmt::format("FRAME: longer than {} bytes", std::size_t{Lumo::Pkt::maxBytes})};
        }
        const auto size = static_cast<std::uint32_t>(bytes.size());
        return GivenFrame{std::move(bytes), size, port, {}, builder.comment};
    } catch (const WordRefused& refused) {
        return Tessel::Refused{fmt::format("FRAME, word {}: {}", refused.place + 1, refused.why)};
    }
}

} // namespace OvixAgent
