#pragma once

#include "State/EthIntfStatusDir.h"
#include "State/MvpnIntfStatus.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// Tells which entries of a hardware adjacency are usable.
class HwStatusViaHelper : public Tessel::Counted {
  public:
    HwStatusViaHelper(Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir,
                      Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus)
        : ethIntfStatusDir_(std::move(ethIntfStatusDir)),
          mvpnIntfStatus_(std::move(mvpnIntfStatus)) {}

    /// A via whose Ethernet interface is down is not usable. One without an interface is: its
    /// next hop is resolved later. So is every via while nobody publishes interface status.
    bool usable(Lumo::IntfId intf) const noexcept {
        return !ethIntfStatusDir_ || intf.kind() != Lumo::IntfId::Kind::ethernet ||
               ethIntfStatusDir_->operUp(intf);
    }

    const Ptr<const Interface::EthIntfStatusDir>& ethIntfStatusDir() const noexcept {
        return ethIntfStatusDir_;
    }
    const Ptr<const Routing::Multicast::MvpnIntfStatus>& mvpnIntfStatus() const noexcept {
        return mvpnIntfStatus_;
    }

  private:
    Ptr<const Interface::EthIntfStatusDir> ethIntfStatusDir_;
    Ptr<const Routing::Multicast::MvpnIntfStatus> mvpnIntfStatus_;
};

} // namespace Ovix
