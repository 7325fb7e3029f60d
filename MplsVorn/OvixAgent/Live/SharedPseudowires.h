#pragma once

#include "Live/ports/LivePorts.h"
#include "State/ForwardingTables.h"
#include "Tables/TableReader.h"

namespace OvixAgent {

/// Keeps the pseudowires that a control plane signals in step with the shared tables.
class SharedPseudowires {
  public:
    /// Everything must outlive it. Nothing is taken over yet.
    SharedPseudowires(Ptr<const Tessel::TableReader> tables, ForwardingTables& forwarding,
                      LivePorts& ports);

    /// To be called when the reader may hold another generation.
    void refresh() {
        if (tables_->changedIn(table_) != seen_) [[unlikely]] {
            take();
        }
    }

  private:
    void take();

    Ptr<const Tessel::TableReader> tables_;
    ForwardingTables* forwarding_;
    LivePorts* ports_;
    std::size_t table_;
    std::uint64_t seen_ = 0; ///< the generation that changed them last
};

} // namespace OvixAgent
