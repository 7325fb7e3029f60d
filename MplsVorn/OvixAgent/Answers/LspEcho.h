#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Answers/Answer.h"
#include "Answers/LspEchoValidation.h"
#include "State/Frame.h"

namespace OvixAgent {

/// Why an MPLS echo packet is not answered.
enum class EchoSilence : std::uint8_t {
    none,
    damaged,
    notARequest,
    noReplyWanted,
    ttlNotExpired,
    sourceNotAHost,
    noSourcePort,
    noOwnAddress,
    tooLong,
    noPath,
    toGroup,
    notToLoopback,
};

inline constexpr std::array<const char*, 12> echoSilenceNames{"",
                                                              "UDP length or checksum wrong",
                                                              "not a request",
                                                              "no reply wanted",
                                                              "TTL not expired",
                                                              "source is not a single host",
                                                              "no source port",
                                                              "port has no address of the family",
                                                              "reply too long",
                                                              "no path to the source",
                                                              "frame to a group of stations",
                                                              "not sent to 127.0.0.0/8 or "
                                                              "::ffff:127.0.0.0/104"};

/// The name of a reason in counts.
std::string nameOf(EchoSilence why);

/// What a reply says about its request.
struct EchoFinding {
    EchoReturnCode code{};
    std::uint8_t depth = 0;       ///< 0: the code has none
    std::optional<EchoFec> fec{}; ///< that the code is about
};

/// A reply, or why there is none.
struct EchoAnswer {
    std::vector<std::uint8_t> packet; ///< a whole IP packet
    EchoSilence silence = EchoSilence::none;
    EchoFinding finding{};
    std::size_t leftOut = 0;    ///< TLVs for which there was no room, most of them mappings
    bool alertsRouters = false; ///< along an LSP it leaves under a router alert label
};

/// The MPLS echo reply (RFC 8029 section 4.5) to a packet that isMplsEcho() and was received at
/// `time` at the port `port`: an IP packet to the request's source, of at most `mtu` bytes. What
/// has no room there is left out.
///
/// Whoever forges the source of requests must not make more of them than they are: a reply without
/// mappings is no longer than its request with its labels, but for a router alert; one with
/// mappings is at most 1500 bytes long, unless the request is longer.
EchoAnswer lspEchoReply(const LabelledPacket& received, PortIndex port, const CaptureTime& time,
                        const EchoTables& tables, const OwnAddresses& own, std::size_t mtu = 65535);

/// Whether it is an MPLS echo request or reply, whoever it is for. The packet must be valid.
bool isEchoRequest(const IpPacket& packet) noexcept;
bool isEchoReply(const IpPacket& packet) noexcept;

/// The name of replies passed on, in counts.
inline constexpr const char* echoPassedOnName = "LSP echo: replies passed on";

/// A time in the format of NTP (RFC 5905 section 6): seconds since 1900 and their fraction, 32 bits
/// each. The seconds wrap in 2036.
std::uint64_t ntpTime(const CaptureTime& time) noexcept;

} // namespace OvixAgent
