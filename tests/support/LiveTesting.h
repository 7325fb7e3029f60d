#pragma once

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <vector>

#include "Live/ports/LivePort.h"
#include "OwnNetwork.h"

namespace LiveTesting {

using Bytes = std::vector<std::uint8_t>;
using TestSupport::awaitOperation;

inline constexpr std::uint8_t leftStation = 1;
inline constexpr std::uint8_t rightStation = 2;
inline constexpr std::uint8_t otherStation = 9;

/// An Ethernet frame from `from` to `to` of these 16-bit fields (tags, EtherType) and a payload
/// that begins with `number`.
inline Bytes frameOf(std::uint8_t from, std::uint8_t to,
                     std::initializer_list<std::uint16_t> fields, std::uint32_t number = 0,
                     std::size_t payload = 50) {
    Bytes frame{2, 0, 0, 0, 0, to, 2, 0, 0, 0, 0, from};
    for (const std::uint16_t field : fields) {
        frame.push_back(static_cast<std::uint8_t>(field >> 8U));
        frame.push_back(static_cast<std::uint8_t>(field));
    }
    for (std::size_t i = 0; i < payload; ++i) {
        frame.push_back(static_cast<std::uint8_t>(i < 4 ? number >> (24 - 8 * i) : i));
    }
    return frame;
}

inline Bytes toRight(std::initializer_list<std::uint16_t> fields, std::uint32_t number = 0,
                     std::size_t payload = 50) {
    return frameOf(leftStation, rightStation, fields, number, payload);
}

inline Bytes toLeft(std::initializer_list<std::uint16_t> fields, std::uint32_t number = 0) {
    return frameOf(rightStation, leftStation, fields, number);
}

inline void transmit(OvixAgent::LivePort& port, const Bytes& frame) {
    port.transmit({0, {}, frame, static_cast<std::uint32_t>(frame.size())});
}

inline void send(OvixAgent::LivePort& port, const Bytes& frame) {
    transmit(port, frame);
    port.flush();
}

/// Calls `visitor` with each frame of a burst, after writing to the headroom of all of them.
template <typename Visitor>
OvixAgent::BurstVisitor each(Visitor visitor) {
    return [visitor](std::span<OvixAgent::WritableFrame> burst) {
        EXPECT_LE(burst.size(), OvixAgent::burstFrames);
        for (const OvixAgent::WritableFrame& frame : burst) {
            EXPECT_GE(frame.headroom, OvixAgent::frameHeadroom);
            std::fill_n(frame.bytes - frame.headroom, frame.headroom, std::uint8_t{0xff});
        }
        for (const OvixAgent::WritableFrame& frame : burst) {
            const OvixAgent::Frame received = frame.frame();
            visitor(received);
        }
    };
}

/// What the port receives, up to and with a frame equal to `last`; without it if it does not come.
inline std::vector<Bytes> receiveUpTo(OvixAgent::LivePort& port, const Bytes& last) {
    std::vector<Bytes> all;
    TestSupport::pollUntil([&port] { return port.descriptor(); },
                           [&port, &all] {
                               port.receive(each([&all](const OvixAgent::Frame& frame) {
                                                all.emplace_back(frame.bytes.begin(),
                                                                 frame.bytes.end());
                                            }),
                                            64);
                           },
                           [&all, &last] { return !all.empty() && all.back() == last; });
    return all;
}

} // namespace LiveTesting
