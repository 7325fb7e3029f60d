#pragma once

#include <string>

#include "decoding/Routes.h"

namespace OvixFpm {

/// "[100/200] via 192.0.2.2 interface 3 weight 1": labels outermost first.
std::string text(const NextHop& hop);
/// "203.0.113.0/24 table 254".
std::string text(const Destination& destination);
/// One line, for logs: "label 1000 protocol 196: HOP, HOP", "203.0.113.0/24 table 254 protocol 196:
/// HOP", "… protocol 196: blackhole", "label 1000 withdrawn".
std::string text(const RouteChange& change);

} // namespace OvixFpm
