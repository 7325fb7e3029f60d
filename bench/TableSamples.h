#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Mpls/LfibStatus.h"
#include "Mpls/LfibWriter.h"

namespace Bench {

inline constexpr std::uint32_t firstLabel = 16;

inline Mpls::RouteKey keyOf(std::uint32_t label) {
    return Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label));
}

/// The one via of a label that is swapped.
std::vector<Mpls::WeightedRecord> swapVia(std::uint32_t outLabel = 300,
                                          const std::string& port = "east",
                                          const std::string& nexthop = "10.0.2.2");

/// Routes of that via for `routes` labels from firstLabel on.
void writeLfib(Mpls::LfibWriter& lfib, std::uint32_t routes, std::uint32_t outLabel = 300);

/// Labels that have a route, at random.
class RandomLabels {
  public:
    explicit RandomLabels(std::uint32_t routes) : routes_(routes) {}
    Mpls::RouteKey next() {
        random_ = random_ * 1664525U + 1013904223U;
        return keyOf(firstLabel +
                     static_cast<std::uint32_t>((std::uint64_t{random_} * routes_) >> 32U));
    }

  private:
    std::uint32_t routes_;
    std::uint32_t random_ = 1;
};

/// A route, its via set and its via.
void readLfib(const Mpls::LfibStatus& lfib, Mpls::RouteKey key);

} // namespace Bench
