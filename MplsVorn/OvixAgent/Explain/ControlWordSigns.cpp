#include "Explain/ControlWordSigns.h"

#include <charconv>

#include "State/Fate.h"

namespace OvixAgent {

namespace {

using Ovix::RoadNote;

std::uint32_t fieldNumber(const RoadNote& note, std::string_view name) {
    std::uint32_t value = 0;
    if (const std::string* const text = note.value(name)) {
        std::from_chars(text->data(), text->data() + text->size(), value);
    }
    return value;
}

} // namespace

std::optional<PayloadSigns> payloadSigns(const Walk& walk) {
    const RoadNote* const note = walk.last("controlWord");
    if (note == nullptr) {
        return std::nullopt;
    }
    const bool isEthernet = isWellKnownEtherType(fieldNumber(*note, "etherType"));
    const bool isBehind = isWellKnownEtherType(fieldNumber(*note, "etherTypeBehind")) &&
                          fieldNumber(*note, "nibble") == 0;
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
