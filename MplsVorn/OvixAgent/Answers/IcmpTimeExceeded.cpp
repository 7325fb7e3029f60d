#include "Answers/IcmpTimeExceeded.h"

#include "Answers/IcmpError.h"

namespace OvixAgent {

std::vector<std::uint8_t> icmpTimeExceeded(const LabelledPacket& received,
                                           const OwnAddresses& own) {
    IcmpError error;
    error.type = received.ip.type == Ovix::PktHdrType::ipv4 ? 11 : 3;
    error.tellsLabelStack = true;
    return icmpErrorPacket(error, received, own);
}

} // namespace OvixAgent
