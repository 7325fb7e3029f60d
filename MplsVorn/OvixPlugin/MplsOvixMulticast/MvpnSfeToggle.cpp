#include "MvpnSfeToggle.h"

#include "Ovix/ToggleService.h"

namespace Ovix {

bool toggleMvpnSfeEnabled() {
    static const bool enabled =
        ToggleService::instance().toggleEnabled("MvpnLib.json", "MvpnSfe", true);
    return enabled;
}

} // namespace Ovix
