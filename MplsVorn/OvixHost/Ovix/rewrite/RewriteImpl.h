#pragma once

#include <string_view>

#include "Ovix/routing/RewriteInfo.h"
#include "Ovix/routing/RoutingContext.h"
#include "State/OvixLfibCounterCollection.h"
#include "Tessel/Changes.h"
#include "Tessel/FlatMap.h"
#include "Tessel/TypeName.h"

namespace Ovix {

/// Why a rewrite could not be applied. The reason is a literal: it names a counter.
class RoutingException final : public Tessel::Counted, public Tessel::Slabbed<RoutingException> {
  public:
    explicit RoutingException(std::string_view reason) noexcept : reason_(reason) {}
    std::string_view reason() const noexcept { return reason_; }

  private:
    std::string_view reason_;
};

/// Applies one rewrite to the frame of a routing context. The packet starts at its label stack or
/// IP header: the agent has taken the received link header off and puts a new one on afterwards.
class RewriteImpl : public Tessel::Counted {
  public:
    virtual std::string_view name() const noexcept = 0;
    virtual Ptr<const RewriteInfo> baseInfo() const noexcept = 0;

    /// Empty on success; otherwise the frame is unusable and is dropped for the reason given.
    virtual Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) = 0;

    /// Whether it does no more and no less than its record says, so that whoever knows the record
    /// may do it in its place.
    virtual bool doesAsRecorded() const noexcept { return false; }
};

/// Runs one counter action, after all rewrites of a frame that is sent.
class CounterActionImpl : public Tessel::Counted {
  public:
    virtual std::string_view name() const noexcept = 0;
    virtual void apply(const Ptr<RoutingContext>& context) = 0;

    /// The counters of label routes that it counts in, when it does no more than count the frame
    /// and the bytes of its record for the route of its record; null when it does anything else.
    virtual Counter::OvixLfibCounterCollection* countsIn() const noexcept { return nullptr; }
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::RoutingException>;

namespace Ovix {

/// From the type name of a rewrite or counter-action record to the function that makes what
/// implements it. A name bound again gets the later function.
class RewriteInfoImplMap : public Tessel::Counted {
  public:
    using RewriteFn = Ptr<RewriteImpl> (*)(const Ptr<RewriteInfo>&);
    using CounterActionFn = Ptr<CounterActionImpl> (*)(const Ptr<CounterActionInfo>&);

    void mapIs(std::string_view name, RewriteFn fn) {
        rewrites_[Tessel::hashText(name)] = fn;
        noticeChange();
    }
    void counterMapIs(std::string_view name, CounterActionFn fn) {
        counterActions_[Tessel::hashText(name)] = fn;
        noticeChange();
    }
    /// How often a name has been bound.
    std::uint64_t changes() const noexcept { return changes_; }

    /// Null for a name that is not bound. Names are distinguished by their 64-bit hash.
    RewriteFn rewriteFn(const Tessel::TypeName& name) const noexcept {
        const RewriteFn* fn = rewrites_.find(name.hash());
        return fn != nullptr ? *fn : nullptr;
    }
    CounterActionFn counterActionFn(const Tessel::TypeName& name) const noexcept {
        const CounterActionFn* fn = counterActions_.find(name.hash());
        return fn != nullptr ? *fn : nullptr;
    }

  private:
    void noticeChange() noexcept {
        ++changes_;
        Tessel::Changes::notice();
    }

    Tessel::FlatMap<RewriteFn> rewrites_;
    Tessel::FlatMap<CounterActionFn> counterActions_;
    std::uint64_t changes_ = 0;
};

} // namespace Ovix
