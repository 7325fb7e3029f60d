#include "Eal.h"
#include "EthernetCard.h"

/// What the agent looks for: OvixAgent::OpenCard.
extern "C" [[gnu::visibility("default")]] OvixAgent::Card*
ovixOpenCard(const OvixAgent::CardOptions& options) {
    OvixDpdk::startEal(options.eal);
    return std::make_unique<OvixDpdk::EthernetCard>(options).release();
}
