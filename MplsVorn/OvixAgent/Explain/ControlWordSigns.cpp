#include "Explain/ControlWordSigns.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "State/Fate.h"

namespace OvixAgent {

namespace {

using Ovix::RoadNote;

/// IPv4, ARP, IPv6, VLAN tags, MPLS, PPPoE, EAPOL, slow protocols, LLDP, MACsec and CFM.
constexpr std::array<std::uint16_t, 14> wellKnown{0x0800, 0x0806, 0x86dd, 0x8100, 0x88a8,
                                                  0x8847, 0x8848, 0x8863, 0x8864, 0x888e,
                                                  0x8809, 0x88cc, 0x88e5, 0x8902};

std::uint32_t fieldNumber(const RoadNote& note, std::string_view name) {
    std::uint32_t value = 0;
    if (const std::string* const text = note.value(name)) {
        std::from_chars(text->data(), text->data() + text->size(), value);
    }
    return value;
}

bool isWellKnown(std::uint32_t etherType) {
    return std::find(wellKnown.begin(), wellKnown.end(), etherType) != wellKnown.end();
}

} // namespace

std::optional<PayloadSigns> payloadSigns(const Walk& walk) {
    const RoadNote* const note = walk.last("controlWord");
    if (note == nullptr) {
        return std::nullopt;
    }
    const bool isEthernet = isWellKnown(fieldNumber(*note, "etherType"));
    const bool isBehind =
        isWellKnown(fieldNumber(*note, "etherTypeBehind")) && fieldNumber(*note, "nibble") == 0;
    return isEthernet == isBehind ? PayloadSigns::unknown
           : isBehind             ? PayloadSigns::controlWord
                                  : PayloadSigns::ethernet;
}

std::string controlWordRemark(const Walk& walk) {
    const auto signs = payloadSigns(walk);
    if (!signs) {
        return {};
    }
    const RoadNote& note = *walk.last("controlWord");
    const bool isExpected = *note.value("expected") == "yes";
    if (walk.reason == Reason::pseudowireCutShort) {
        return "the payload is shorter than an Ethernet frame, with or without a control word: it "
               "was cut short before it came here";
    }
    if (!isExpected) {
        return *signs == PayloadSigns::controlWord
                   ? "the payload reads as an Ethernet frame behind a control word, which is not "
                     "expected: what leaves is probably four bytes too long (control-word: true)"
                   : "";
    }
    const std::uint32_t nibble = fieldNumber(note, "nibble");
    if (*signs == PayloadSigns::controlWord || (*signs == PayloadSigns::unknown && nibble == 1)) {
        return {};
    }
    if (*signs == PayloadSigns::ethernet) {
        return nibble == 0 ? "the payload reads as an Ethernet frame without a control word, whose "
                             "destination address begins with 0: four bytes of it are probably "
                             "removed by mistake (control-word: false, at both ends)"
                           : "";
    }
    return nibble == 0
               ? "whether the first four bytes are a control word cannot be known from this frame: "
                 "one without it whose destination address begins with 0 looks the same (RFC 4385)"
               : "whether the other end sends no control word, or this is no frame of the "
                 "pseudowire, cannot be known from this frame";
}

} // namespace OvixAgent
