#include "Eal.h"
#include "EthernetCard.h"

/// What the agent looks for: OvixAgent::OpenCard.
extern "C" [[gnu::visibility("default")]] OvixAgent::Card*
ovixOpenCard(const OvixAgent::CardOptions& options) {
    OvixDpdk::startEal(options.eal);
    auto device = std::make_shared<OvixDpdk::EthernetDevice>(options);
    return std::make_unique<OvixDpdk::EthernetCard>(std::move(device)).release();
}
