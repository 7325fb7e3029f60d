#pragma once

namespace Ovix {

/// Whether this device forwards multicast VPN traffic in software: the toggle "MvpnSfe" of
/// "MvpnLib.json", on unless told otherwise. Read when first asked for and kept.
bool toggleMvpnSfeEnabled();

} // namespace Ovix
