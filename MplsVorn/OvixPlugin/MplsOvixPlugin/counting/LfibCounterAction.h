#pragma once

#include <cassert>

#include "Ovix/rewrite/RewriteImpl.h"
#include "Ovix/routing/RewriteInfo.h"
#include "State/OvixLfibCounterCollection.h"

namespace Ovix {

/// The process-wide collection that counter actions made from infos count in; the previous one is
/// released.
void setStaticLfibCounterCollection(Ptr<Counter::OvixLfibCounterCollection> collection);

/// Counts a frame for its incoming label, after all rewrites, so that only frames that are sent
/// count. The length counted is the one recorded when the frame was routed.
class LfibCounterActionImpl : public CounterActionImpl,
                              public Tessel::Slabbed<LfibCounterActionImpl> {
  public:
    LfibCounterActionImpl(Ptr<Counter::OvixLfibCounterCollection> collection,
                          Ptr<LfibCounterActionInfo> info) noexcept
        : collection_(std::move(collection)), info_(std::move(info)) {
        assert(info_);
    }

    static Ptr<LfibCounterActionImpl>
    LfibCounterActionImplIs(const Ptr<Counter::OvixLfibCounterCollection>& collection,
                            const Ptr<LfibCounterActionInfo>& info);

    /// For the rewrite map: `info` must be an LfibCounterActionInfo. Counts in the process-wide
    /// collection.
    static Ptr<CounterActionImpl> fromInfo(const Ptr<CounterActionInfo>& info);

    std::string_view name() const noexcept override { return "LfibCounterActionImpl"; }
    void apply(const Ptr<RoutingContext>& context) override;
    Counter::OvixLfibCounterCollection* countsIn() const noexcept override {
        return collection_.get();
    }

  private:
    Ptr<Counter::OvixLfibCounterCollection> collection_;
    Ptr<LfibCounterActionInfo> info_;
};

Ptr<LfibCounterActionImpl>
lfibCounterActionImplFactory(const Ptr<Counter::OvixLfibCounterCollection>& collection,
                             const Ptr<LfibCounterActionInfo>& info);

} // namespace Ovix
