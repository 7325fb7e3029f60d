#include "MplsOvixMulticast/MvpnSfeToggle.h"

#include "Ovix/plugin/ToggleService.h"

namespace Ovix {

bool toggleMvpnSfeEnabled() {
    static const bool enabled =
        ToggleService::instance().toggleEnabled("MvpnLib.json", "MvpnSfe", true);
    return enabled;
}

} // namespace Ovix
