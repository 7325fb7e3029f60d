#include "decoding/NextHop.h"

#include <algorithm>
#include <string>
#include <utility>

#include "Tessel/Exceptions.h"

namespace OvixFpm {

Way::Way(const Lumo::IpGenAddr& gateway, std::uint32_t interface)
    : gateway_(gateway), interface_(interface) {
    if (hasGateway() && gateway.empty()) {
        throw Tessel::RangeError("gateway is the unspecified address");
    }
    if (interface > maxInterface) {
        throw Tessel::RangeError("interface index " + std::to_string(interface) +
                                 " is more than 2147483647");
    }
    if (!hasGateway() && interface == 0) {
        throw Tessel::RangeError("next hop has neither gateway nor interface");
    }
}

NextHop::NextHop(std::vector<Lumo::MplsLabel> labels, const Way& way, std::uint16_t weight)
    : labels_(std::move(labels)), way_(way), weight_(weight) {
    if (weight == 0 || weight > maxWeight) {
        throw Tessel::RangeError("weight " + std::to_string(weight) + " is not 1 to 256");
    }
    if (std::find(labels_.begin(), labels_.end(), Lumo::implicitNull) != labels_.end()) {
        throw Tessel::RangeError("implicit null in a label stack");
    }
}

NextHops::NextHops(std::vector<NextHop> hops) : hops_(std::move(hops)) {
    if (hops_.empty()) {
        throw Tessel::RangeError("route without a next hop");
    }
}

} // namespace OvixFpm
