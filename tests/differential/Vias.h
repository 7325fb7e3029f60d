#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Mpls/Hardware/Adjacency.h"
#include "Mpls/LabelRoute.h"
#include "Network.h"
#include "Random.h"

namespace Differential {

/// What a label route or an adjacency may consist of.
struct ViaSet {
    Mpls::LfibViaType type = Mpls::LfibViaType::ip;
    bool isMulticast = false;
    std::vector<Mpls::WeightedVia> vias;
    std::optional<Mpls::LfibMulticastIpLookupVia> tail;
    Traffic traffic = Traffic::other;
};

/// A legal via set at random; one that ends at this device only if `mayEndHere`.
ViaSet makeViaSet(Random& random, const Network& network, bool mayEndHere);

std::string describe(const Mpls::LabelRoute& route);
std::string describe(const Mpls::Hardware::AdjacencyVias& content);

} // namespace Differential
