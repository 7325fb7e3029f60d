#include "Explain/FrameRemedies.h"

#include <algorithm>
#include <fmt/format.h>

#include "Explain/FrameWords.h"
#include "Explain/RemedyWords.h"
#include "Lumo/MplsLabel.h"
#include "Ovix/packet/PacketContext.h"
#include "Wire/Ethernet.h"
#include "Wire/Ip.h"
#include "Wire/LabelStack.h"
#include "Wire/LspEcho.h"
#include "Wire/Transport.h"

namespace OvixAgent {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// Where the parts of a frame start; the size of the frame for what it does not have.
struct Places {
    explicit Places(Wire::Bytes frame) : labels(Wire::linkLength(frame)), payload(labels) {
        const Wire::TagWalk tags = Wire::behindTags(frame);
        if (Wire::EtherType::isMpls(tags.etherType())) {
            Wire::LabelWalk walk(frame.subspan(labels));
            for (Lumo::MplsLabelEntry entry; walk.next(entry);) {
            }
            payload = frame.size() - walk.rest().size();
        }
    }

    std::size_t labels;
    std::size_t payload;
};

constexpr std::uint8_t leastTtl = 2;

/// Every label's TTL, and that of the IP packet beneath, is at least 2.
bool raiseTtls(Bytes& frame) {
    const Places places(frame);
    bool isChanged = false;
    for (std::size_t at = places.labels; at + Lumo::MplsLabelEntry::size <= places.payload;
         at += Lumo::MplsLabelEntry::size) {
        std::uint8_t& ttl = frame[at + Lumo::MplsLabelEntry::ttlAt];
        isChanged = isChanged || ttl < leastTtl;
        ttl = std::max(ttl, leastTtl);
    }
    const Wire::WritableBytes packet = Wire::WritableBytes(frame).subspan(places.payload);
    if (const Wire::Ipv4 ipv4{Wire::Bytes(packet)}; ipv4 && ipv4.ttl() < leastTtl) {
        Wire::Ipv4Writer(packet).ttlWithChecksumIs(leastTtl);
        return true;
    }
    if (const Wire::Ipv6 ipv6{Wire::Bytes(packet)}; ipv6 && ipv6.hopLimit() < leastTtl) {
        Wire::Ipv6Writer(packet).hopLimitIs(leastTtl);
        return true;
    }
    return isChanged;
}

/// An LSP ping goes to another UDP port.
bool changeEchoPort(Bytes& frame) {
    const Places places(frame);
    const Wire::WritableBytes packet = Wire::WritableBytes(frame).subspan(places.payload);
    const Wire::Ipv4 ipv4{Wire::Bytes(packet)};
    const Wire::Ipv6 ipv6{Wire::Bytes(packet)};
    if (!ipv4 && !ipv6) {
        return false;
    }
    const Wire::UpperLayer upper =
        ipv4 ? Wire::upperLayer(ipv4) : Wire::ipv6UpperLayer(Wire::Bytes(packet));
    const Wire::WritableBytes segment = packet.subspan(std::min(upper.offset, packet.size()));
    const Wire::Udp udp{Wire::Bytes(segment)};
    if (upper.protocol != Wire::IpProtocol::udp || !upper.isFirstFragment || !udp ||
        udp.destinationPort() != Wire::lspEchoPort) {
        return false;
    }
    const std::uint16_t before = udp.destinationPort();
    const auto after = static_cast<std::uint16_t>(before + 1);
    const Wire::UdpWriter writer(segment);
    if (udp.checksum() != 0) {
        writer.checksumIs(Wire::updatedChecksum(udp.checksum(), before, after));
    }
    writer.portsAre(udp.sourcePort(), after);
    return true;
}

bool removeRouterAlert(Bytes& frame) {
    const Places places(frame);
    for (std::size_t at = places.labels; at + Lumo::MplsLabelEntry::size <= places.payload;
         at += Lumo::MplsLabelEntry::size) {
        const auto entry = Lumo::MplsLabelEntry::load(frame.data() + at);
        if (entry.label() == Lumo::routerAlert && !entry.bos()) {
            const auto from = frame.begin() + static_cast<std::ptrdiff_t>(at);
            frame.erase(from, from + Lumo::MplsLabelEntry::size);
            return true;
        }
    }
    return false;
}

struct FrameChange {
    bool (*change)(Bytes& frame);
    const char* note;
};
constexpr FrameChange frameChanges[]{
    {raiseTtls, "the sender: TTLs of 2 or more; one that is spent here may also be a loop before "
                "this router"},
    {changeEchoPort, "an LSP ping to this UDP port belongs to this router (RFC 8029): any other "
                     "port is forwarded"},
    {removeRouterAlert, "the sender: without the router alert label (RFC 3032)"},
};

} // namespace

std::vector<Remedy> frameRemedies(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk) {
    std::vector<Remedy> all;
    const auto add = [&](GivenFrame changed, const char* note) {
        changed.originalLength +=
            static_cast<std::uint32_t>(changed.bytes.size() - frame.bytes.size());
        const std::string& port = situation.config.ports[frame.port].name;
        all.push_back({fmt::format("{} --port {} {}", situation.explainCommand, shellWord(port),
                                   hexText(changed.bytes)),
                       note, situation, std::move(changed)});
    };
    for (const FrameChange& each : frameChanges) {
        GivenFrame changed = frame;
        if (each.change(changed.bytes)) {
            add(std::move(changed), each.note);
        }
    }
    if (walk.reason == Reason::otherStation && frame.bytes.size() >= Wire::Ethernet::macSize) {
        GivenFrame changed = frame;
        const Lumo::EthAddr& mac = situation.config.ports[frame.port].mac;
        std::copy(mac.begin(), mac.end(), changed.bytes.begin());
        add(std::move(changed), "the sender: to the MAC address of the port");
    }
    return all;
}

} // namespace OvixAgent
