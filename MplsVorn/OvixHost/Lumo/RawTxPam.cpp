#include "Lumo/RawTxPam.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include "Tessel/Slab.h"

namespace Lumo {

namespace {

/// A packet socket of its own, open while the port is enabled.
class PacketSocketTxPam : public RawTxPam, public Tessel::Slabbed<PacketSocketTxPam> {
  public:
    ~PacketSocketTxPam() override { shut(); }

    void enabledIs(bool enabled) override {
        if (!enabled) {
            shut();
        } else if (socket_ < 0) {
            // Protocol 0: the socket only sends.
            socket_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        }
    }

    void ethProtocolIs(std::uint16_t protocol) override { protocol_ = protocol; }

    bool send(const Ptr<Pkt>& packet, std::uint32_t interfaceIndex) override {
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_protocol = htons(protocol_);
        to.sll_ifindex = static_cast<int>(interfaceIndex);
        const std::span<const std::uint8_t> frame = packet->data();
        const ssize_t sent = sendto(socket_, frame.data(), frame.size(), MSG_DONTWAIT,
                                    reinterpret_cast<const sockaddr*>(&to), sizeof to);
        return sent == static_cast<ssize_t>(frame.size());
    }

  private:
    void shut() noexcept {
        if (socket_ >= 0) {
            close(socket_);
            socket_ = -1;
        }
    }

    int socket_ = -1;
    std::uint16_t protocol_ = 0;
};

class PacketSockets : public RawTxBackend {
  public:
    // The interface is named by index with every frame, as packet(7) has it.
    Ptr<RawTxPam> rawTxPam(std::string_view) override { return Tessel::make<PacketSocketTxPam>(); }

    std::uint32_t interfaceIndex(std::string_view interfaceName) override {
        std::array<char, IF_NAMESIZE> name{};
        if (interfaceName.size() >= name.size()) {
            return 0;
        }
        std::copy(interfaceName.begin(), interfaceName.end(), name.begin());
        return if_nametoindex(name.data());
    }
};

PacketSockets& packetSockets() noexcept {
    static PacketSockets sockets;
    return sockets;
}

RawTxBackend* installed = nullptr;

} // namespace

RawTxBackend& RawTxBackend::current() noexcept {
    return installed != nullptr ? *installed : packetSockets();
}

void RawTxBackend::currentIs(RawTxBackend* backend) noexcept {
    installed = backend;
}

Ptr<RawTxPam> rawTxPamFactory(std::string_view interfaceName) {
    return RawTxBackend::current().rawTxPam(interfaceName);
}

std::uint32_t if_nametoindexAt(std::string_view interfaceName) {
    return RawTxBackend::current().interfaceIndex(interfaceName);
}

} // namespace Lumo
