#pragma once

#include <cassert>
#include <cstdint>

#include "Mpls/RouteKey.h"
#include "Tessel/Ptr.h"
#include "Tessel/PtrList.h"
#include "Tessel/Slab.h"
#include "Tessel/TypeName.h"

namespace Ovix {

/// The description of one rewrite, made when the frame is routed and applied when it is sent. Never
/// changed once made, so that next hops share it.
class RewriteInfo : public Tessel::Counted {
  public:
    virtual const Tessel::TypeName& typeName() const noexcept = 0;
};

/// The description of one counter action, run after all rewrites of a frame that is sent.
class CounterActionInfo : public Tessel::Counted {
  public:
    virtual const Tessel::TypeName& typeName() const noexcept = 0;
};

/// The rewrites of one next hop in order of application, and the counter actions that follow them.
class RewriteInfos final : public Tessel::Counted, public Tessel::Slabbed<RewriteInfos> {
  public:
    using Rewrites = Tessel::PtrList<RewriteInfo, 4>;
    using CounterActions = Tessel::PtrList<CounterActionInfo, 2>;

    void rewriteInfoEnq(Ptr<RewriteInfo>&& info) {
        assert(info);
        rewrites_.push(std::move(info));
    }
    void finalCounterActionInfoEnq(Ptr<CounterActionInfo>&& info) {
        assert(info);
        counterActions_.push(std::move(info));
    }

    /// Appends what the other list holds; nothing that is here already is lost, so the pops of
    /// several labels add up.
    void copyFrom(const RewriteInfos& other) {
        rewrites_.append(other.rewrites_);
        counterActions_.append(other.counterActions_);
    }
    void copyFrom(const Ptr<RewriteInfos>& other) { copyFrom(*other); }
    /// The same, at less cost when the handle given is the list's last one.
    void copyFrom(Ptr<RewriteInfos>&& other) {
        if (other->references() > 1) {
            copyFrom(std::as_const(other));
            return;
        }
        rewrites_.append(std::move(other->rewrites_));
        counterActions_.append(std::move(other->counterActions_));
    }

    const Rewrites& rewrites() const noexcept { return rewrites_; }
    const CounterActions& finalCounterActions() const noexcept { return counterActions_; }

  private:
    Rewrites rewrites_;
    CounterActions counterActions_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::RewriteInfos>;
extern template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::RewriteInfo>>;
extern template class Tessel::Slabbed<Tessel::PtrListChunk<Ovix::CounterActionInfo>>;

namespace Ovix {

/// Counts one packet of `byteCount` bytes for a label route.
class LfibCounterActionInfo final : public CounterActionInfo,
                                    public Tessel::Slabbed<LfibCounterActionInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"LfibCounterActionInfo"};

    LfibCounterActionInfo(Mpls::RouteKey routeKey, std::uint32_t byteCount) noexcept
        : routeKey_(routeKey), byteCount_(byteCount) {}

    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
    Mpls::RouteKey routeKey() const noexcept { return routeKey_; }
    std::uint32_t byteCount() const noexcept { return byteCount_; }

  private:
    Mpls::RouteKey routeKey_;
    std::uint32_t byteCount_;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::LfibCounterActionInfo>;
