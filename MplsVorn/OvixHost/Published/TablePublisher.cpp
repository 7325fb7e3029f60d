#include "Published/TablePublisher.h"

namespace Mpls {

TablePublisher::TablePublisher(Tessel::TableMemory memory, std::chrono::milliseconds keptFor)
    : tables_(std::move(memory), tableDirectory, keptFor),
      lfibs_{LfibWriter(tables_, TableId::decapLfib),
             LfibWriter(tables_, TableId::evpnEthernetSegmentFilterLfib),
             LfibWriter(tables_, TableId::evpnEtreeLeafLabelLfib),
             LfibWriter(tables_, TableId::pseudowireLfib),
             LfibWriter(tables_, TableId::transitLfib)},
      hardware_(tables_), mvpn_(tables_, static_cast<std::size_t>(TableId::mvpnIntfStatus)),
      interfaces_(tables_, static_cast<std::size_t>(TableId::interfaceNames)),
      ipRoutes_(tables_, static_cast<std::size_t>(TableId::ipRoutes)),
      pseudowires_(tables_, static_cast<std::size_t>(TableId::pseudowires)),
      waiting_(tables_, TableId::waitingRoutes), labelRoutes_(*this) {
    if (tables_.repaired() > 0) {
        mvpn_.closeGaps();
        labelRoutes_.settleAll();
        commit();
    }
}

void TablePublisher::discard() {
    tables_.discard();
    interfaces_.discard();
    ipRoutes_.discard();
    labelRoutes_.discard();
}

} // namespace Mpls
