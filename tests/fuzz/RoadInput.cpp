#include "RoadInput.h"

#include "ChangeMaker.h"
#include "RouteMaker.h"

namespace Fuzz {

using namespace Differential;

namespace {

enum How : std::uint8_t { endsBurst = 1, hasOtherHeadroom = 2, isSnapped = 4 };
constexpr std::size_t changeSize = 5;

std::size_t lengthAt(Bytes input, std::size_t header) noexcept {
    return input[header + 4] | std::size_t{input[header + 5]} << 8U;
}

/// The end of the step that begins there.
std::size_t endOf(Bytes input, std::size_t at) noexcept {
    const std::size_t left = input.size() - at;
    const std::size_t wanted = input[at] == endOfInput    ? 1
                               : input[at] >= firstChange ? changeSize
                               : left < frameHeader       ? frameHeader
                                                          : frameHeader + lengthAt(input, at);
    return at + std::min(wanted, left);
}

ScriptFrame readFrame(Bytes step, const Network& network, std::uint64_t time) {
    Input from(step.data(), step.size());
    ScriptFrame frame;
    frame.port = from.byte() % static_cast<std::uint32_t>(network.ports.size());
    // The circuit is the last of the ports; the others are those that frames come in at.
    frame.port = frame.port < network.plainPorts
                     ? frame.port
                     : static_cast<std::uint32_t>(network.ports.size() - 1);
    const std::uint8_t headroom = from.byte();
    const std::uint8_t snapped = from.byte();
    const std::uint8_t how = from.byte();
    frame.headroom = (how & hasOtherHeadroom) != 0 ? headroom : OvixAgent::frameHeadroom;
    frame.snapped = (how & isSnapped) != 0 ? snapped * 16U : 0;
    from.number<std::uint16_t>();
    const Bytes bytes = from.rest();
    frame.bytes.assign(bytes.begin(), bytes.end());
    frame.time = time;
    return frame;
}

/// What a random number makes: of the tables, with their commit, or of anything else.
void addChange(std::vector<Step>& steps, Bytes step, const Script& script, Network& network) {
    Input from(step.data() + 1, step.size() - 1);
    Random random(from.number<std::uint32_t>());
    steps.push_back((step[0] & 1U) != 0 ? makeLabelChange(random, network)
                                        : makeOtherChange(random, network, script));
    steps.push_back({"commit", [](Router& router) { router.commit(); }});
}

} // namespace

std::vector<std::size_t> stepPlaces(Bytes input) {
    std::vector<std::size_t> places;
    std::size_t at = std::min<std::size_t>(1, input.size());
    for (; at < input.size(); at = endOf(input, at)) {
        places.push_back(at);
    }
    places.push_back(at);
    return places;
}

std::vector<std::uint8_t> wholeSteps(Bytes input) {
    std::vector<std::uint8_t> whole(input.begin(), input.end());
    const std::vector<std::size_t> places = stepPlaces(input);
    if (places.size() < 2) {
        return whole;
    }
    const std::size_t last = places[places.size() - 2];
    if (whole[last] >= firstChange) {
        whole.resize(std::max(whole.size(), last + (whole[last] == endOfInput ? 1 : changeSize)));
        return whole;
    }
    whole.resize(std::max(whole.size(), last + frameHeader));
    const std::size_t length = whole.size() - last - frameHeader;
    whole[last + 4] = static_cast<std::uint8_t>(length);
    whole[last + 5] = static_cast<std::uint8_t>(length >> 8U);
    return whole;
}

std::vector<Step> readSteps(Bytes input, const Script& script, Network& network) {
    constexpr std::uint64_t start = 1'600'000'000'000'000'000;
    std::vector<Step> steps;
    bool isOpen = false;
    const std::vector<std::size_t> places = stepPlaces(input);
    for (std::size_t i = 0; i + 1 < places.size(); ++i) {
        const Bytes step = input.subspan(places[i], places[i + 1] - places[i]);
        if (step[0] == endOfInput) {
            steps.push_back({"the end", settleAll});
            isOpen = false;
            continue;
        }
        if (step[0] >= firstChange) {
            addChange(steps, step, script, network);
            isOpen = false;
            continue;
        }
        if (!isOpen || steps.back().frames.size() == OvixAgent::burstFrames) {
            steps.push_back({"burst", {}});
            isOpen = true;
        }
        steps.back().frames.push_back(readFrame(step, network, start + 1000 * i));
        isOpen = step.size() < frameHeader || (step[3] & endsBurst) == 0;
    }
    return steps;
}

std::vector<std::uint8_t> frameStep(const ScriptFrame& frame, bool ends) {
    const bool isUsual = frame.headroom == OvixAgent::frameHeadroom;
    std::vector<std::uint8_t> step{static_cast<std::uint8_t>(frame.port),
                                   static_cast<std::uint8_t>(frame.headroom),
                                   static_cast<std::uint8_t>(frame.snapped / 16),
                                   static_cast<std::uint8_t>((ends ? endsBurst : 0) |
                                                             (isUsual ? 0 : hasOtherHeadroom) |
                                                             (frame.snapped > 0 ? isSnapped : 0)),
                                   static_cast<std::uint8_t>(frame.bytes.size()),
                                   static_cast<std::uint8_t>(frame.bytes.size() >> 8U)};
    step.insert(step.end(), frame.bytes.begin(), frame.bytes.end());
    return step;
}

} // namespace Fuzz
