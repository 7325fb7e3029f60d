#include "FastPath/FastPath.h"

#include "Tessel/Exceptions.h"

namespace OvixAgent {

FastPath::FastPath(Forwarder& forwarder, const Ptr<Ovix::PluginManager>&, ForwardingTables&,
                   Mpls::PublishedTables&)
    : forwarder_(&forwarder) {}

std::size_t FastPath::receive(std::span<WritableFrame> burst) {
    std::size_t done = 0;
    try {
        for (; done < burst.size(); ++done) {
            forwarder_->receive(burst[done].frame());
            ++counts_.slow;
        }
    } catch (const Tessel::SnapshotLost&) {
        // The caller refreshes the tables and passes the rest again.
    }
    return done;
}

} // namespace OvixAgent
