#pragma once

#include "Ovix/plugin/Ports.h"
#include "Ovix/viaset/MplsLfibTables.h"
#include "Ovix/viaset/MplsViaTypeHandler.h"

namespace Ovix {

/// The tail of a multicast LSP: hands the IP packet beneath the label to the CPU, which forwards it
/// in the VRF, on the VLAN of the lookup. The frame itself gets no next hop.
///
///     0      12       14    16          18
///     +------+--------+-----+-----------+------------------------------+
///     | MACs | 0x8100 | TCI | EtherType | the IP packet, as it came in |
///     +------+--------+-----+-----------+------------------------------+
///
/// An ordinary 802.1Q frame: the received MAC addresses, a tag of priority 0 and the lookup's VLAN,
/// and the EtherType of the packet. The TTL is left to the CPU, whose IP hop takes it (the pipe
/// model of RFC 3443).
///
/// Drops with "No multicastIpLookupVia", "Unexpected MPLS packet with bos as false", "Multicast
/// payload is not IP" and "CPU port refused the special packet". Not counted, but traced: the CPU
/// has no port, or the received frame has several tags.
class MplsMulticastIpLookupViaTypeHandler : public MplsViaTypeHandler {
  public:
    MplsMulticastIpLookupViaTypeHandler(Mpls::LfibViaType viaType,
                                        const Ptr<MplsLfibTables>& lfibTables,
                                        const Ptr<Ports>& ports)
        : MplsViaTypeHandler(viaType), lfibTables_(lfibTables), ports_(ports) {}

    static Ptr<MplsMulticastIpLookupViaTypeHandler> MplsMulticastIpLookupViaTypeHandlerIs(
        Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables, const Ptr<Ports>& ports);

    ProcessingResult processMplsVia(const Ptr<MplsContext>& context) override;

    const Ptr<MplsLfibTables>& lfibTables() const noexcept { return lfibTables_; }
    const Ptr<Ports>& ports() const noexcept { return ports_; }

  private:
    void deliver(const MplsContext& context, const OvixMplsVia& via, Port& cpu) const;

    Ptr<MplsLfibTables> lfibTables_;
    Ptr<Ports> ports_;
};

Ptr<MplsMulticastIpLookupViaTypeHandler> mplsMulticastIpLookupViaTypeHandlerFactory(
    Mpls::LfibViaType viaType, const Ptr<MplsLfibTables>& lfibTables, const Ptr<Ports>& ports);

} // namespace Ovix
