#include "Input.h"
#include "Lumo/MplsLabel.h"
#include "pseudowires/LdpReading.h"

namespace {

using L2::Pseudowire;

bool isLabel(std::uint32_t label) {
    return label >= Pseudowire::minLabel && label <= Lumo::MplsLabel::max;
}

} // namespace

/// What vtysh prints of ldpd's answers. Nothing is up that no frame can be sent by.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto all = OvixFpm::readLdp(text);
    if (!all) {
        Fuzz::check(!all.refused().what.empty(), "a refusal without a reason");
        return 0;
    }
    for (const Pseudowire& pseudowire : all.value()) {
        Fuzz::check(!pseudowire.name.empty(), "a pseudowire without a name");
        const bool isWhole = isLabel(pseudowire.localLabel) && isLabel(pseudowire.remoteLabel) &&
                             !pseudowire.circuit.empty() &&
                             pseudowire.localMtu == pseudowire.remoteMtu;
        Fuzz::check(!pseudowire.isUp() || isWhole, "a pseudowire is up that is not whole");
    }
    return 0;
}
