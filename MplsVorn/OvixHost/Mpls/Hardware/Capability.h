#pragma once

#include <bitset>

#include "Tessel/Entity.h"

namespace Mpls::Hardware {

/// The MPLS features that the platform announces; the rest of the system reads them to decide what
/// may be configured. Every setter publishes a change under the flag's attribute.
class Capability : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Mpls::Hardware::Capability";
    enum Attr : Tessel::AttrId {
        mplsSupportedAttr,
        mplsIntfCfgSupportedAttr,
        mplsForwardIntoNexthopGroupSupportedAttr,
        mplsEntropyLabelSupportedAttr,
        mplsMultiLabelTerminationSupportedAttr,
        mplsMulticastSupportedAttr,
        mplsMvpnSupportedAttr,
        mplsStaticVrfLabelSupportedAttr,
        mplsFragNeededIcmpTunnelingSupportedAttr,
    };

    Capability() : Entity("capability") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    bool mplsSupported() const noexcept { return flags_[mplsSupportedAttr]; }
    void mplsSupportedIs(bool on) { flagIs(mplsSupportedAttr, on); }
    bool mplsIntfCfgSupported() const noexcept { return flags_[mplsIntfCfgSupportedAttr]; }
    void mplsIntfCfgSupportedIs(bool on) { flagIs(mplsIntfCfgSupportedAttr, on); }
    bool mplsForwardIntoNexthopGroupSupported() const noexcept {
        return flags_[mplsForwardIntoNexthopGroupSupportedAttr];
    }
    void mplsForwardIntoNexthopGroupSupportedIs(bool on) {
        flagIs(mplsForwardIntoNexthopGroupSupportedAttr, on);
    }
    bool mplsEntropyLabelSupported() const noexcept {
        return flags_[mplsEntropyLabelSupportedAttr];
    }
    void mplsEntropyLabelSupportedIs(bool on) { flagIs(mplsEntropyLabelSupportedAttr, on); }
    bool mplsMultiLabelTerminationSupported() const noexcept {
        return flags_[mplsMultiLabelTerminationSupportedAttr];
    }
    void mplsMultiLabelTerminationSupportedIs(bool on) {
        flagIs(mplsMultiLabelTerminationSupportedAttr, on);
    }
    bool mplsMulticastSupported() const noexcept { return flags_[mplsMulticastSupportedAttr]; }
    void mplsMulticastSupportedIs(bool on) { flagIs(mplsMulticastSupportedAttr, on); }
    bool mplsMvpnSupported() const noexcept { return flags_[mplsMvpnSupportedAttr]; }
    void mplsMvpnSupportedIs(bool on) { flagIs(mplsMvpnSupportedAttr, on); }
    bool mplsStaticVrfLabelSupported() const noexcept {
        return flags_[mplsStaticVrfLabelSupportedAttr];
    }
    void mplsStaticVrfLabelSupportedIs(bool on) { flagIs(mplsStaticVrfLabelSupportedAttr, on); }
    bool mplsFragNeededIcmpTunnelingSupported() const noexcept {
        return flags_[mplsFragNeededIcmpTunnelingSupportedAttr];
    }
    void mplsFragNeededIcmpTunnelingSupportedIs(bool on) {
        flagIs(mplsFragNeededIcmpTunnelingSupportedAttr, on);
    }

  private:
    void flagIs(Attr flag, bool on) {
        if (flags_[flag] != on) {
            flags_[flag] = on;
            publish(flag);
        }
    }

    std::bitset<9> flags_;
};

} // namespace Mpls::Hardware
