#include "FrameMaker.h"

#include <algorithm>

#include "Lumo/Pkt.h"
#include "Packets.h"
#include "State/Frame.h"

namespace Differential {

namespace {

constexpr std::uint16_t etherMpls = 0x8847;
constexpr std::uint16_t etherMplsUpstream = 0x8848;
constexpr std::uint16_t etherIpv4 = 0x0800;
constexpr std::uint16_t etherIpv6 = 0x86dd;
constexpr std::uint16_t etherVlan = 0x8100;
constexpr std::uint16_t etherServiceVlan = 0x88a8;

/// One frame in the making.
class FrameMaker {
  public:
    FrameMaker(Random& random, const Network& network) : random_(random), network_(network) {}

    ScriptFrame make(std::uint64_t time) {
        frame_.bytes.reserve(128);
        frame_.time = time;
        frame_.headroom = random_.chance(85) ? OvixAgent::frameHeadroom : random_.below(140);
        frame_.port = random_.below(network_.plainPorts);
        const std::uint32_t of = random_.below(100);
        if (of < 78) {
            labelled();
        } else if (of < 94) {
            frame_.kind = Traffic::ip;
            ip();
        } else if (of < 98) {
            customers();
        } else {
            special();
        }
        disturb();
        return std::move(frame_);
    }

  private:
    void varied() { frame_.kind = Traffic::varied; }
    Bytes& bytes() { return frame_.bytes; }

    void labelled();
    void labels();
    void beneath(Traffic kind);
    void ip();
    void customers();
    void special();
    void link(std::uint16_t etherType);
    void tags();
    void disturb();
    std::uint8_t ttl();
    std::size_t payloadLength(std::size_t headers);

    Random& random_;
    const Network& network_;
    ScriptFrame frame_;
};

std::uint8_t FrameMaker::ttl() {
    if (random_.chance(88)) {
        return static_cast<std::uint8_t>(3 + random_.below(253));
    }
    varied();
    return random_.pick<std::uint8_t>({0, 1, 2, 2, 255});
}

/// Sometimes so long that the frame is about as long as a port's MTU, or as a packet may be.
std::size_t FrameMaker::payloadLength(std::size_t headers) {
    if (random_.chance(93)) {
        return random_.below(60);
    }
    varied();
    if (random_.chance(4)) {
        return Lumo::Pkt::maxBytes - headers - random_.below(80);
    }
    const std::size_t mtu = network_.ports[random_.below(network_.ports.size())].mtu;
    const std::size_t wanted = std::min<std::size_t>(mtu, 2000) + random_.below(40);
    return wanted > headers + 20 ? wanted - headers - 20 : 0;
}

/// The addresses and the tags in front of `etherType`.
void FrameMaker::link(std::uint16_t etherType) {
    Lumo::EthAddr mac = network_.ports[frame_.port].mac;
    if (random_.chance(3)) {
        varied();
        mac = random_.pick<Lumo::EthAddr>({{0xff, 0xff, 0xff, 0xff, 0xff, 0xff},
                                           {1, 0, 0x5e, 0, 0, 5},
                                           {1, 0, 0x5e, 0x80, 0, 5},
                                           {2, 0, 0, 0, 9, 9}});
    }
    put(bytes(), mac);
    put(bytes(), std::array<std::uint8_t, 6>{2, 0, 0, 9, 9, random_.byte()});
    tags();
    put16(bytes(), etherType);
}

/// Those of a sub-interface, or any.
void FrameMaker::tags() {
    if (random_.chance(6)) {
        varied();
        const std::uint32_t count = 1 + random_.below(3);
        for (std::uint32_t i = 0; i < count; ++i) {
            put16(bytes(),
                  random_.pick({etherVlan, etherVlan, etherServiceVlan, std::uint16_t{0x9100}}));
            put16(bytes(), random_.below(8) << 13U | random_.pick({0U, 5U, 7U, 8U, 9U, 20U}));
        }
        return;
    }
    if (network_.ports.size() <= network_.plainPorts + 1 || frame_.port != 1 ||
        random_.chance(40)) {
        return;
    }
    const PortPlan& plan = network_.ports[network_.plainPorts + random_.below(2)];
    put16(bytes(), plan.innerVlan != 0 ? etherServiceVlan : etherVlan);
    put16(bytes(), plan.vlan);
    if (plan.innerVlan != 0) {
        put16(bytes(), etherVlan);
        put16(bytes(), plan.innerVlan);
    }
}

void FrameMaker::labelled() {
    const bool isUpstream = random_.chance(3);
    link(isUpstream ? etherMplsUpstream : etherMpls);
    labels();
    if (isUpstream) {
        varied();
    }
}

void FrameMaker::labels() {
    const std::uint32_t top =
        random_.chance(96) ? random_.pick(network_.labels) : random_.below(1048576);
    const Traffic kind = network_.trafficOf(top);
    frame_.kind = kind;
    std::vector<std::uint32_t> stack{top};
    if (random_.chance(22)) {
        const std::uint32_t more = random_.chance(96) ? 1 + random_.below(3) : random_.below(24);
        for (std::uint32_t i = 0; i < more; ++i) {
            stack.push_back(random_.chance(60) ? random_.pick(network_.labels)
                                               : random_.below(1048576));
        }
    }
    if (random_.chance(8)) { // an entropy label and its indicator (RFC 6790)
        stack.insert(stack.begin() + 1 + random_.below(stack.size()),
                     {7U, 16 + random_.below(1048560)});
    }
    if (random_.chance(5)) {
        varied();
        stack[random_.below(stack.size())] =
            random_.pick<std::uint32_t>({0, 1, 2, 3, 6, 7, 13, 14, 15, 15});
    }
    const bool lacksBottom = random_.chance(1);
    for (std::size_t i = 0; i < stack.size(); ++i) {
        const bool isBottom = i + 1 == stack.size() && !lacksBottom;
        put32(bytes(), stack[i] << 12U | random_.below(8) << 9U | (isBottom ? 0x100U : 0U) | ttl());
    }
    beneath(kind);
    if (lacksBottom) {
        varied();
    }
    if (stack.size() > 1 && frame_.kind != Traffic::varied) {
        frame_.kind = Traffic::stack; // whatever the first label leads to
    }
}

/// What the stack carries.
void FrameMaker::beneath(Traffic kind) {
    const std::size_t headers = bytes().size();
    std::uint32_t of = random_.below(100);
    if (kind == Traffic::pseudowireOut && random_.chance(85)) {
        of = 99;
    }
    if (of < 55) {
        putIpv4(bytes(), random_, network_, payloadLength(headers), ttl());
    } else if (of < 75) {
        putIpv6(bytes(), random_, network_, payloadLength(headers), ttl());
    } else if (of < 80) {
        varied();
        putRandom(bytes(), random_, random_.below(70));
    } else if (of < 84) {
        varied();
        damageIp(bytes(), random_,
                 [&] { putIpv4(bytes(), random_, network_, payloadLength(headers), ttl()); });
    } else if (of < 86) {
        varied();
        damageIp(bytes(), random_,
                 [&] { putIpv6(bytes(), random_, network_, payloadLength(headers), ttl()); });
    } else {
        if (random_.chance(70)) { // a control word (RFC 4385)
            put32(bytes(),
                  random_.pick<std::uint32_t>({0, 0, 0, 0x10000021, 0x00040007, 0x20000000}));
        }
        putCustomersFrame(bytes(), random_, network_);
    }
}

void FrameMaker::ip() {
    const bool isIpv4 = random_.chance(70);
    link(isIpv4 ? etherIpv4 : etherIpv6);
    const std::size_t headers = bytes().size();
    const auto putPacket = [&] {
        if (isIpv4) {
            putIpv4(bytes(), random_, network_, payloadLength(headers), ttl());
        } else {
            putIpv6(bytes(), random_, network_, payloadLength(headers), ttl());
        }
    };
    if (random_.chance(85)) {
        putPacket();
    } else {
        varied();
        damageIp(bytes(), random_, putPacket);
    }
}

/// At the attachment circuit everything is carried.
void FrameMaker::customers() {
    frame_.port = static_cast<OvixAgent::PortIndex>(network_.ports.size() - 1);
    frame_.kind = Traffic::pseudowireIn;
    putCustomersFrame(bytes(), random_, network_);
}

/// A special packet of a multicast VPN, or nothing in particular.
void FrameMaker::special() {
    varied();
    if (random_.chance(30)) {
        putRandom(bytes(), random_, random_.below(100));
        return;
    }
    put(bytes(), network_.ports[frame_.port].mac);
    put(bytes(), std::array<std::uint8_t, 6>{2, 0, 0, 9, 9, 1});
    put16(bytes(), etherVlan);
    put16(bytes(), random_.below(4096));
    put16(bytes(), 0x8139);
    put32(bytes(), 7 + random_.below(4));
    putRandom(bytes(), random_, 8);
    const auto pmsi =
        random_.chance(70) ? Lumo::VlanIntfId::vlanIdToIntfId(100) : Lumo::IntfId("p2");
    put32(bytes(), static_cast<std::uint32_t>(pmsi.value() >> 32U));
    put32(bytes(), static_cast<std::uint32_t>(pmsi.value()));
    labels();
    varied();
}

/// What the link does to frames: padding, cut ends, flipped bits; and what a capture leaves out.
void FrameMaker::disturb() {
    constexpr std::size_t shortest = 60;
    const std::uint32_t of = random_.below(100);
    if (of < 80) {
        bytes().resize(std::max(bytes().size(), shortest));
        return;
    }
    if (of < 90) {
        return;
    }
    varied();
    if (of < 93) {
        frame_.snapped = random_.below(random_.chance(50) ? 4 : 3000);
    } else if (of < 96 && !bytes().empty()) {
        const std::size_t cut = 1 + random_.below(bytes().size());
        bytes().resize(bytes().size() - cut);
        frame_.snapped = random_.chance(50) ? static_cast<std::uint32_t>(cut) : 0;
    } else if (!bytes().empty()) {
        const std::uint32_t flips = 1 + random_.below(3);
        for (std::uint32_t i = 0; i < flips; ++i) {
            bytes()[random_.below(std::min<std::size_t>(bytes().size(), 80))] ^=
                static_cast<std::uint8_t>(1U << random_.below(8));
        }
    }
}

} // namespace

ScriptFrame makeFrame(Random& random, const Network& network, std::uint64_t time) {
    return FrameMaker(random, network).make(time);
}

} // namespace Differential
