#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "Config/Config.h"
#include "Tessel/Words.h"

namespace Differential {

class Router;

/// What a frame was made to be, for the statistics. All but `varied` are sound, whole and within
/// the limits of their road when they are made.
enum class Traffic : std::uint8_t {
    swap,
    swapToSeveral,
    push,
    pop,
    choice,
    lookup,
    fec,
    multicast,
    tail,
    pseudowireOut,
    other,
    unknown,
    stack,
    ip,
    pseudowireIn,
    varied,
};
inline constexpr std::size_t trafficKinds = 16;

/// A frame to be received.
struct ScriptFrame {
    std::vector<std::uint8_t> bytes;
    std::uint32_t snapped = 0; ///< bytes that the wire had beyond those
    std::uint32_t headroom = 0;
    OvixAgent::PortIndex port = 0;
    std::uint64_t time = 0; ///< nanoseconds
    Traffic kind = Traffic::varied;
};

/// A change, or a burst of frames.
struct Step {
    std::string text;                    ///< the change in words
    std::function<void(Router&)> change; ///< empty for a burst
    std::vector<ScriptFrame> frames{};   ///< of a burst: 1 to 64
    bool looksAtCounters = false;        ///< after the burst
};

/// What happens to a router, from its start.
struct Script {
    std::uint64_t seed = 0;
    std::vector<std::string> texts; ///< of the configurations
    std::vector<OvixAgent::AgentConfig> configs;
    bool isLive = false;   ///< every port routes IP, neighbours are solicited
    bool byWorker = false; ///< goes by a worker where it goes fast
    bool isBusy = false;   ///< beside another worker, in a thread of its own
    bool anyMac = false;
    bool isAnswered = false;    ///< what is punted or not delivered, see Router::takeAnswers()
    bool reusesRecords = false; ///< at once, in the tables' memory; otherwise never
    std::vector<Step> steps;
};

} // namespace Differential

template <>
inline constexpr auto
    Tessel::words<Differential::Traffic> = std::to_array<Tessel::Word<Differential::Traffic>>({
        {"swap", Differential::Traffic::swap},
        {"swap to several", Differential::Traffic::swapToSeveral},
        {"push", Differential::Traffic::push},
        {"pop", Differential::Traffic::pop},
        {"choice", Differential::Traffic::choice},
        {"pop and look up", Differential::Traffic::lookup},
        {"external FEC", Differential::Traffic::fec},
        {"multicast", Differential::Traffic::multicast},
        {"multicast tail", Differential::Traffic::tail},
        {"out of a pseudowire", Differential::Traffic::pseudowireOut},
        {"other routes", Differential::Traffic::other},
        {"unknown label", Differential::Traffic::unknown},
        {"several labels", Differential::Traffic::stack},
        {"IP", Differential::Traffic::ip},
        {"into a pseudowire", Differential::Traffic::pseudowireIn},
        {"varied", Differential::Traffic::varied},
    });
