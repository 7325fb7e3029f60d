#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "SourceDir.h"

namespace TestSupport::Fpm {

/// All but vrf_full_dump, which is long and has no kind of message that the others have not.
inline const std::vector<std::string> recordings{"plain_routes",
                                                 "discarding_routes",
                                                 "multipath_routes",
                                                 "labelled_routes",
                                                 "changed_route",
                                                 "label_routes",
                                                 "changed_label_route",
                                                 "withdrawals",
                                                 "full_dump",
                                                 "next_hop_groups",
                                                 "routes_with_bandwidth",
                                                 "weighted_routes",
                                                 "changed_weights",
                                                 "weights_gone",
                                                 "vrf_routes",
                                                 "vrf_leaked_routes",
                                                 "vrf_labels",
                                                 "vpn_routes",
                                                 "vrf_imports",
                                                 "vrf_withdrawals",
                                                 "vrf_gone"};

/// The bytes that zebra sent; empty when there is no such recording.
inline std::vector<std::uint8_t> recorded(const std::string& name) {
    std::ifstream file(std::string(sourceDir()) + "/tests/data/fpm/" + name + ".bin",
                       std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace TestSupport::Fpm
