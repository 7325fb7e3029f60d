#pragma once

#include <span>
#include <utility>
#include <vector>

#include "FastPath/FastPath.h"
#include "Forwarding/Forwarder.h"
#include "Live/workers/Worker.h"
#include "MemoryQueue.h"
#include "State/ForwardingTables.h"

namespace Differential {

/// A worker beside the forwarder, both in this thread: frame by frame, so that what the worker
/// leaves does not change places with what it forwards.
class WorkerRoad {
  public:
    /// Everything must outlive it; the ports have their outputs.
    WorkerRoad(OvixAgent::FastPath& fastPath, OvixAgent::Forwarder& forwarder,
               OvixAgent::ForwardingTables& tables)
        : fastPath_(&fastPath), forwarder_(&forwarder), tables_(&tables),
          worker_(fastPath.shared(), -1) {
        worker_.ports().push_back(std::make_unique<TestSupport::MemoryQueue>(
            [this] { return std::exchange(next_, {}); }));
        for (OvixAgent::PortIndex i = 0; i < tables.ports.ports().size(); ++i) {
            worker_.own().all()[i].out = tables.ports.ports()[i].out;
        }
    }

    /// Takes over what has changed, and has all labels decided that wait for it.
    void refresh() {
        while (fastPath_->decideAhead()) {
        }
    }
    /// False when the tables must be refreshed first, and the frame taken again.
    bool receive(OvixAgent::WritableFrame& frame) {
        next_ = {&frame, 1};
        worker_.turn();
        return takeLeft();
    }
    /// What is left of a frame that could not be received. False as above.
    bool takeLeft() {
        bool isTaken = true;
        std::vector<OvixAgent::FrameRing*> lanes{&worker_.lanes().urgent};
        for (const auto& lane : worker_.lanes().ofPorts) {
            lanes.push_back(lane.get());
        }
        for (OvixAgent::FrameRing* lane : lanes) {
            OvixAgent::WritableFrame left;
            while (isTaken && lane->front(left)) {
                isTaken = fastPath_->receiveLeft(left);
                if (isTaken) {
                    lane->pop();
                }
            }
        }
        collect();
        return isTaken;
    }

  private:
    void collect() {
        forwarder_->accounts().absorb(worker_.accounts());
        fastPath_->addFast(worker_.takeFast());
        std::vector<OvixAgent::OwnPorts::Own>& own = worker_.own().all();
        for (OvixAgent::PortIndex i = 0; i < own.size(); ++i) {
            tables_->ports.ports()[i].sent += std::exchange(own[i].sent, {});
            if (OvixAgent::Pseudowire* const pseudowire = tables_->pseudowires.ofPort(i)) {
                pseudowire->sent += std::exchange(own[i].intoPseudowire, {});
                pseudowire->delivered += std::exchange(own[i].fromPseudowire, {});
            }
        }
        if (const auto counters = fastPath_->labelCounters()) {
            for (std::uint32_t label = 0; label <= Lumo::MplsLabel::max;
                 label += counters->labelsAtOnce) {
                counters->absorbLabels(label, worker_.labels(), [](std::uint32_t) { return true; });
            }
        }
    }

    OvixAgent::FastPath* fastPath_;
    OvixAgent::Forwarder* forwarder_;
    OvixAgent::ForwardingTables* tables_;
    OvixAgent::Worker worker_;
    std::span<OvixAgent::WritableFrame> next_;
};

} // namespace Differential
