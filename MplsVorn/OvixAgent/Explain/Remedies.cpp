#include "Explain/Remedies.h"

#include <array>
#include <fmt/format.h>

#include "Explain/ControlWordSigns.h"
#include "Explain/FrameRemedies.h"
#include "Explain/RemedyCase.h"
#include "Explain/TableRemedies.h"

namespace OvixAgent {

namespace {

/// Only a payload that reads as an Ethernet frame has been sent without a control word.
Remedies withoutControlWord(const RemedyCase& of) {
    if (payloadSigns(of.walk) != PayloadSigns::ethernet) {
        return {};
    }
    const PortIndex port = of.port("nexthop", "interface");
    Remedies all;
    for (std::size_t i = 0; i < of.situation.config.pseudowires.size(); ++i) {
        const PseudowireConfig& pseudowire = of.situation.config.pseudowires[i].value;
        if (pseudowire.port == port && pseudowire.controlWord) {
            Remedy remedy = of.unchanged();
            remedy.situation.config.pseudowires[i].value.controlWord = false;
            remedy.command = fmt::format("# in {}, of pseudowire {}\ncontrol-word: false",
                                         yamlWord(of.situation.file), yamlWord(pseudowire.name));
            remedy.note = "both ends of a pseudowire have to agree; the payload reads as an "
                          "Ethernet frame without a control word";
            all.push_back(std::move(remedy));
        }
    }
    return all;
}

Remedies mplsRoutingOn(const RemedyCase& of) {
    Remedy remedy = of.unchanged();
    remedy.situation.config.mplsRouting = true;
    remedy.command = fmt::format("# in {}\nmpls-routing: true", yamlWord(of.situation.file));
    return {remedy};
}

/// By what the label's lookup has found.
Remedies labelRouted(const RemedyCase& of) {
    const std::string found = of.value("table", "found");
    if (found == "no usable via") {
        Remedies all = ontoPort(of.situation, of.frame, of.walk);
        for (PortIndex port = 0; port < of.situation.config.ports.size(); ++port) {
            for (Remedy& remedy : portUp(of, port)) {
                all.push_back(std::move(remedy));
            }
        }
        return all;
    }
    return tableRemedies(of.situation, of.frame, of.walk);
}

Remedies frameChanged(const RemedyCase& of) {
    return frameRemedies(of.situation, of.frame, of.walk);
}

struct RemediesOf {
    std::string_view reason;
    Remedies (*remedies)(const RemedyCase& of);
};
constexpr std::array<RemediesOf, 25> remediesByReason{{
    {Reason::nothingResolved, labelRouted},
    {Reason::noNexthopBeneath, labelRouted},
    {Reason::noNexthop, labelRouted},
    {Reason::portDown, egressUp},
    {Reason::noNeighbour, neighbourKnown},
    {queuedForNeighbour.reason, neighbourKnown},
    {Reason::mtuExceeded, greaterMtu},
    {Reason::noRoute, routeMade},
    {Reason::unknownVrf, vrfMade},
    {Reason::noControlWord, withoutControlWord},
    {Reason::associatedChannel, withoutControlWord},
    {Reason::mplsNotAllowed, mplsAllowed},
    {Reason::upstreamLabel, upstreamLabelsTaken},
    {Reason::mplsRoutingOff, mplsRoutingOn},
    {"Mpls routing not enabled", mplsRoutingOn},
    {Reason::notMpls, ipRouted},
    {Reason::otherStation, frameChanged},
    {Reason::ttlExpired, frameChanged},
    {Reason::mplsEcho, frameChanged},
    {Reason::reversePath, reversePathOff},
    {Reason::noReverseRoute, reversePathOff},
    {Reason::noVlan, subInterfaceMade},
    {Reason::unknownFec, fecMade},
    {"No valid vias adjacency for label %s", labelRouted},
    {"No adjacency for label %s", labelRouted},
}};

} // namespace

Remedies remediesFor(const Situation& situation, const GivenFrame& frame, const Walk& walk) {
    const RemedyCase of{situation, frame, walk};
    const auto found =
        std::find_if(remediesByReason.begin(), remediesByReason.end(),
                     [&](const RemediesOf& each) { return each.reason == walk.reason; });
    // Other reasons why frames are punted are in the frames.
    return found != remediesByReason.end() ? found->remedies(of)
           : walk.kind == FateKind::punted ? frameChanged(of)
                                           : Remedies();
}

} // namespace OvixAgent
