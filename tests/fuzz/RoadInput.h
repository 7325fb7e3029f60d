#pragma once

#include <cstdint>
#include <vector>

#include "Input.h"
#include "Network.h"
#include "Router.h"
#include "ScriptMaker.h"

// The bytes of an input of the road:
//
//     world, then steps:
//     +--------+----------+----------+--------+-----------+-----------
//     |  port  | headroom | snapped  |  how   |  length   | bytes ...     a frame
//     +--------+----------+----------+--------+-----------+-----------
//     +--------+-------------------------------+
//     | 0xc0 + |       seed, 4 bytes           |                           a change
//     +--------+-------------------------------+
//     |  0xff  |                                 all that waits is given up, as at the end
//     +--------+
//
// The length has two bytes, the lower one first; a frame at the end may be cut short. Bit 0 of
// `how` ends the burst, bits 1 to 3 say whether the headroom and the snapped bytes count.

namespace Fuzz {

inline constexpr unsigned worlds = 4;
inline constexpr std::uint8_t firstChange = 0xc0;
inline constexpr std::uint8_t endOfInput = 0xff;
inline constexpr std::size_t frameHeader = 6;

/// The routers' tables and surroundings of that number, the same always.
inline Differential::Start makeWorld(unsigned number) {
    Differential::Start world = Differential::makeStart(number + 1);
    world.script.isLive = number % 2 == 1;
    world.script.isAnswered = world.script.isLive;
    return world;
}

inline void settleAll(Differential::Router& router) {
    router.settleWaiting(true);
}

/// The world in which the next inputs are received.
unsigned worldNow();

/// Where the steps of an input begin and end; the first is behind the number of the world.
std::vector<std::size_t> stepPlaces(Bytes input);

/// The same, with the length of a frame that is cut short at the end made right, so that other
/// steps may follow.
std::vector<std::uint8_t> wholeSteps(Bytes input);

/// The steps of an input, whose world's network is kept in step with the changes.
std::vector<Differential::Step> readSteps(Bytes input, const Differential::Script& script,
                                          Differential::Network& network);

/// The bytes of a frame's step.
std::vector<std::uint8_t> frameStep(const Differential::ScriptFrame& frame, bool endsBurst);

} // namespace Fuzz
