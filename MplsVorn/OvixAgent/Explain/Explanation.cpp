#include "Explain/Explanation.h"

#include <algorithm>
#include <fmt/format.h>

#include "Explain/ControlWordSigns.h"
#include "Explain/FrameWords.h"
#include "Explain/NearestChanges.h"
#include "Explain/Remedies.h"
#include "Explain/StepTexts.h"
#include "Ovix/trace/NamedCounters.h"
#include "State/LinkHeader.h"
#include "State/PseudowirePayload.h"
#include "State/RoadSteps.h"
#include "Wire/ControlWord.h"

namespace OvixAgent {

namespace {

std::string headerText(const Ovix::PacketHeader& header) {
    const Wire::Bytes bytes = header.bytes();
    if (header.pktHdrType() == Ovix::PktHdrType::vlanTags) {
        std::string text = "VLAN";
        const auto& tags = static_cast<const Ovix::VlanTagHeaderData&>(*header.headerData());
        for (const Wire::Tag& tag : tags.vlanTags()) {
            text += fmt::format(" {} priority {}", tag.vlanId(), tag.priority());
        }
        return text;
    }
    if (header.pktHdrType() == Ovix::PktHdrType::udp) {
        return "UDP";
    }
    if (const Ovix::MplsHeaderData* const labels = Ovix::mplsHeaderData(header)) {
        std::string text;
        for (const Lumo::MplsLabelEntry entry : *labels) {
            text += fmt::format("{}label {} TC {} TTL {}{}", text.empty() ? "" : ", ",
                                entry.label().value(), entry.tc(), entry.ttl(),
                                entry.bos() ? ", bottom" : "");
        }
        return text;
    }
    // With what follows, for the transport's ports.
    const Wire::Bytes whole(bytes.data(), bytes.size() + header.payload().size());
    return headersText(header.pktHdrType(), whole);
}

/// The parser takes whatever is beneath labels and no IP packet for an Ethernet frame.
void addPseudowirePayload(std::vector<std::string>& headers, Wire::Bytes payload) {
    const Wire::ControlWord word(payload);
    const PayloadSigns signs = payloadSigns(payload);
    if (signs == PayloadSigns::controlWord) {
        headers.emplace_back("control word " + hexText(payload.first(Wire::ControlWord::size)));
        payload = payload.subspan(Wire::ControlWord::size);
    }
    if (signs != PayloadSigns::unknown) {
        for (std::string& inner : parsedHeaders(payload)) {
            headers.push_back(std::move(inner));
        }
    } else {
        const bool isChannel = word && word.isAssociatedChannel();
        headers.push_back(fmt::format(
            "{}{} bytes", isChannel ? "associated channel (RFC 4385), " : "no IP packet, ",
            payload.size()));
    }
}

void markFailure(Explanation& explanation) {
    const Walk& walk = explanation.walk;
    if (walk.kind == FateKind::forwarded || explanation.steps.empty()) {
        return;
    }
    // What ends a walk is the step before the packet's bytes, where there is one, and before
    // answers.
    const auto last = std::find_if(
        explanation.steps.rbegin(), explanation.steps.rend(), [](const Explanation::Step& step) {
            return step.kind != "headers" && step.kind != "answer" && step.kind != "reply";
        });
    (last != explanation.steps.rend() ? *last : explanation.steps.back()).isFailure = true;
}

} // namespace

std::vector<std::string> parsedHeaders(std::span<const std::uint8_t> frame) {
    std::vector<std::string> all;
    Ovix::PacketContext packet(Lumo::globalPktManager()->newPkt(frame));
    packet.parsedPkt().maybeDoFullParse();
    for (std::int32_t i = 0; i < packet.parsedPkt().headers(); ++i) {
        const Ptr<Ovix::PacketHeader> header = packet.parsedPkt().header(i);
        if (header->pktHdrType() != Ovix::PktHdrType::udp) {
            all.push_back(headerText(*header));
        }
        const Wire::Bytes beneath = header->payload();
        if (header->pktHdrType() == Ovix::PktHdrType::mpls && !beneath.empty() &&
            !isIpPayload(beneath)) {
            addPseudowirePayload(all, beneath);
            break;
        }
    }
    return all;
}

std::string verdictText(const Walk& walk, const std::optional<Walk>& onceKnown) {
    std::string where;
    for (const Walk::Sent& sent : walk.sent) {
        where += fmt::format("{}{}, {} bytes", where.empty() ? " by " : "; by ", sent.port,
                             sent.originalLength);
    }
    if (walk.isForwarded()) {
        return "forwarded" + where;
    }
    if (const Ovix::RoadNote* const waits = walk.last("waits");
        walk.isWaiting && waits != nullptr) {
        const Ovix::RoadNote& note = *waits;
        return fmt::format("waiting: held for up to {} s until the MAC address of {} on {} is "
                           "known; the kernel is asked for it{}, or the frame is dropped if nobody "
                           "answers",
                           *note.value("seconds"), *note.value("address"), *note.value("port"),
                           onceKnown ? ", and then the frame is " + verdictText(*onceKnown) : "");
    }
    const bool hasCopies = walk.kind == FateKind::dropped && !where.empty();
    return fmt::format("{}: {}{}", walk.fateWord(), Ovix::readableEvent({}, walk.reason).reason,
                       hasCopies ? "; other copies leave" + where : "");
}

namespace {

/// The next hop that a route names, if that is an address of this router.
std::string ownNexthop(const Walk& walk) {
    const auto valueOf = [&](std::string_view step, std::string_view name) {
        const Ovix::RoadNote* const note = walk.last(step);
        const std::string* const value = note != nullptr ? note->value(name) : nullptr;
        return value != nullptr ? *value : std::string();
    };
    const std::string named = valueOf("nexthop", "address");
    return walk.reason == Reason::localAddress && !valueOf("nexthop", "interface").empty() &&
                   named == valueOf("neighbour", "address")
               ? named
               : std::string();
}

} // namespace

std::string noChangeText(const Walk& walk) {
    if (const std::string own = ownNexthop(walk); !own.empty()) {
        return fmt::format("none: the next hop {} is this router's own address, and a route has to "
                           "name its neighbour's",
                           own);
    }
    if (walk.reason == Reason::droppingRoute) {
        return "none: the route drops what it covers, as it is configured to";
    }
    if (walk.kind == FateKind::punted) {
        return "none, since such frames are for the control plane of this router";
    }
    const Ovix::RoadNote* const table = walk.last("table");
    const std::string* const label = table != nullptr ? table->value("label") : nullptr;
    const bool isReserved = label != nullptr && label->size() <= 2 && std::stoi(*label) < 16;
    return isReserved ? fmt::format("none: label {} is reserved (RFC 3032, RFC 7274), and has no "
                                    "route",
                                    *label)
                      : "none was found that forwards the frame";
}

namespace {

/// What becomes of a frame that waits; unset when it cannot be tried.
std::optional<Walk> walkOnceKnown(const Situation& situation, const GivenFrame& frame,
                                  const Walk& walk) {
    for (const Remedy& known : remediesFor(situation, frame, walk)) {
        if (const auto router = TrialRouter::of(known.situation)) {
            return router.value()->walk(frame);
        }
    }
    return std::nullopt;
}

} // namespace

Tessel::Result<Explanation> explain(const Situation& situation, const GivenFrame& frame) {
    Explanation explanation;
    explanation.port = situation.config.ports.at(frame.port).name;
    explanation.frame = frame;
    explanation.tables = situation.tablesName;
    explanation.headers = parsedHeaders(frame.bytes);
    {
        const auto router = TrialRouter::of(situation);
        if (!router) {
            return router.refused();
        }
        explanation.walk = router.value()->walk(frame);
        explanation.generation = router.value()->published().tables().generation();
        explanation.steps = stepsOf(explanation.walk, *router.value());
        explanation.fastRoad = router.value()->fastRoad(frame);
    }
    markFailure(explanation);
    if (explanation.walk.isWaiting) {
        explanation.onceKnown = walkOnceKnown(situation, frame, explanation.walk);
    }
    explanation.verdict = verdictText(explanation.walk, explanation.onceKnown);
    if (!explanation.walk.isForwarded()) {
        explanation.isChangeWanted = true;
        explanation.change = nearestChange(situation, frame, explanation.walk);
    }
    const PortConfig& port = situation.config.ports[frame.port];
    if (situation.isLive && !port.isUp) {
        const auto problem = situation.problems.find(frame.port);
        explanation.remarks.push_back(fmt::format(
            "port {} is down{}: no frame comes in there now; this is about one that "
            "would, once it is up",
            port.name, problem != situation.problems.end() ? " (" + problem->second + ")" : ""));
    }
    if (!frame.comment.empty()) {
        explanation.remarks.push_back(frame.comment);
    }
    if (std::string remark = controlWordRemark(explanation.walk); !remark.empty()) {
        explanation.remarks.push_back(std::move(remark));
    }
    return explanation;
}

} // namespace OvixAgent
