#include "Live/SharedPseudowires.h"

#include "Published/Pseudowires.h"
#include "Tessel/Exceptions.h"

namespace OvixAgent {

SharedPseudowires::SharedPseudowires(Ptr<const Tessel::TableReader> tables,
                                     ForwardingTables& forwarding, LivePorts& ports)
    : tables_(std::move(tables)), forwarding_(&forwarding), ports_(&ports),
      table_(tables_->table(L2::Pseudowires::mountPath, L2::Pseudowires::typeName)) {}

void SharedPseudowires::take() {
    try {
        const ForwardingGate::Closed closed(forwarding_->gate);
        const std::uint64_t changed = tables_->changedIn(table_);
        forwarding_->signalledAre(L2::Pseudowires::read(*tables_));
        seen_ = changed;
        ports_->intakesAre(forwarding_->pseudowires, forwarding_->ports);
    } catch (const Tessel::CorruptionDetected&) {
        seen_ = tables_->changedIn(table_); // they stay as they were
    } catch (const Tessel::SnapshotLost&) {
        // There is a newer generation to go over to.
    }
}

} // namespace OvixAgent
