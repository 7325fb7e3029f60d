#include "State/PktCounterCollectionHolder.h"

#include <algorithm>

namespace Counter {

void PktCounterCollectionHolder::collectionIs(Ptr<OvixLfibCounterCollection> collection) {
    if (!collection) {
        return;
    }
    const auto same = std::find_if(collections_.begin(), collections_.end(), [&](const auto& held) {
        return held->name() == collection->name();
    });
    if (same != collections_.end()) {
        *same = std::move(collection);
    } else {
        collections_.push_back(std::move(collection));
    }
}

} // namespace Counter
