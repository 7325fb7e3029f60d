#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "FrameBytes.h"
#include "Live/ports/PacketRing.h"

namespace LiveTesting {

using TestSupport::Raw::Bytes;

inline constexpr std::uint8_t tcpOverIpv4 = 1;
inline constexpr std::uint8_t tcpOverIpv6 = 4;
inline constexpr std::uint8_t udpOverIp = 5;
inline constexpr std::uint8_t withCwr = 0x80;

/// Makes the checksum of the IPv4 header there right, as far as it is within the frame.
inline void setIpv4Checksum(Bytes& frame, std::size_t at) {
    frame[at + 10] = frame[at + 11] = 0;
    const std::size_t size = (frame[at] & 15U) * std::size_t{4};
    const std::span<const std::uint8_t> rest = std::span(frame).subspan(at);
    const auto sum = TestSupport::Raw::onesSum(rest.first(std::min(size, rest.size())));
    std::ranges::copy(TestSupport::Raw::u16(0xffffU ^ sum),
                      frame.begin() + static_cast<std::ptrdiff_t>(at) + 10);
}

/// A TCP or UDP packet of any length, as one frame or as the segments that a wire would carry.
struct MergedFrame {
    Bytes link = TestSupport::Raw::eth(TestSupport::Raw::ethIpv4);
    bool isIpv4 = true;
    bool isTcp = true;
    std::size_t payload = 3000;
    std::uint16_t segmentSize = 1000;
    std::uint8_t flags = 0x10;    ///< of TCP
    std::size_t tcpOptions = 0;   ///< bytes, a multiple of 4
    Bytes ipv4Options{};          ///< a multiple of 4
    std::uint32_t sequence = 1;   ///< of the first byte
    std::uint16_t ident = 0x1234; ///< of the first segment
    std::uint8_t segmentation = tcpOverIpv4;

    std::size_t networkHeader() const { return isIpv4 ? 20 + ipv4Options.size() : 40; }
    std::size_t transportHeader() const { return isTcp ? 20 + tcpOptions : 8; }
    std::size_t transport() const { return link.size() + networkHeader(); }
    std::size_t headers() const { return transport() + transportHeader(); }

    OvixAgent::OffloadedWork work() const {
        return {1, segmentation, 0, segmentSize, static_cast<std::uint16_t>(transport()), 16};
    }

    /// What the kernel would hand on: all of the payload behind one set of headers.
    Bytes whole() const { return frame(0, payload, flags, 0); }

    /// What a wire would carry.
    std::vector<Bytes> segments() const {
        constexpr unsigned int finAndPush = 0x09;
        constexpr unsigned int cwr = 0x80;
        std::vector<Bytes> all;
        for (std::size_t at = 0; at < std::max<std::size_t>(payload, 1); at += segmentSize) {
            const std::size_t size = std::min<std::size_t>(segmentSize, payload - at);
            const unsigned int kept = (at == 0 ? 0xffU : 0xffU ^ cwr) &
                                      (at + size == payload ? 0xffU : 0xffU ^ finAndPush);
            all.push_back(frame(at, size, static_cast<std::uint8_t>(flags & kept), all.size()));
        }
        return all;
    }

  private:
    Bytes frame(std::size_t at, std::size_t size, std::uint8_t segmentFlags,
                std::size_t number) const {
        using namespace TestSupport::Raw;
        const std::uint8_t protocol = isTcp ? protocolTcp : protocolUdp;
        Bytes segment = isTcp ? tcp(at, size, segmentFlags) : udp(5000, 5001, content(at, size));
        const std::uint32_t source = 0x0a010001;
        const std::uint32_t destination = 0xc0000201;
        const Bytes addresses =
            isIpv4 ? join({u32(source), u32(destination)}) : join({ipv6Address(1), ipv6Address(2)});
        const auto sum = onesSum(join(
            {addresses, u32(static_cast<std::uint32_t>(segment.size())), u32(protocol), segment}));
        const std::uint32_t checksum = sum == 0xffff ? 0xffffU : 0xffffU ^ sum;
        std::ranges::copy(u16(checksum), segment.begin() + (isTcp ? 16 : 6));
        return join({link, isIpv4 ? ipv4({.source = source,
                                          .destination = destination,
                                          .protocol = protocol,
                                          .fragment = 0x4000,
                                          .ident = static_cast<std::uint16_t>(ident + number),
                                          .options = ipv4Options},
                                         segment)
                                  : ipv6({.nextHeader = protocol}, segment)});
    }

    Bytes tcp(std::size_t at, std::size_t size, std::uint8_t segmentFlags) const {
        using namespace TestSupport::Raw;
        const auto offset = static_cast<std::uint8_t>((20 + tcpOptions) / 4 * 16);
        return join({u16(5000),
                     u16(5001),
                     u32(sequence + static_cast<std::uint32_t>(at)),
                     u32(0x01020304),
                     {offset, segmentFlags},
                     u16(0x2000),
                     u16(0),
                     u16(0),
                     filled(tcpOptions, 1),
                     content(at, size)});
    }

    /// No two stretches of it are alike for long.
    static Bytes content(std::size_t at, std::size_t size) {
        Bytes bytes(size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<std::uint8_t>((at + i) * 2654435761U >> 13U);
        }
        return bytes;
    }
};

} // namespace LiveTesting
