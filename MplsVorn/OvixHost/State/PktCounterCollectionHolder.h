#pragma once

#include <vector>

#include "State/OvixLfibCounterCollection.h"
#include "Tessel/Ptr.h"

namespace Counter {

/// The packet counter collections that the agent shows and exports.
class PktCounterCollectionHolder : public Tessel::Counted {
  public:
    /// Holds a collection; one of the same name is replaced. An empty handle is ignored.
    void collectionIs(Ptr<OvixLfibCounterCollection> collection);
    const std::vector<Ptr<OvixLfibCounterCollection>>& collections() const noexcept {
        return collections_;
    }

  private:
    std::vector<Ptr<OvixLfibCounterCollection>> collections_;
};

} // namespace Counter
