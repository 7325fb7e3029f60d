#pragma once

#include <string_view>

#include "Ovix/rewrite/RewriteImpl.h"
#include "Tessel/FlatMap.h"
#include "Tessel/TypeName.h"

namespace Ovix {

/// From the type name of a rewrite or counter-action record to the function that makes what
/// implements it. A name bound again is bound anew.
class RewriteInfoImplMap : public Tessel::Counted {
  public:
    using RewriteFn = Ptr<RewriteImpl> (*)(const Ptr<RewriteInfo>&);
    using CounterActionFn = Ptr<CounterActionImpl> (*)(const Ptr<CounterActionInfo>&);

    void mapIs(std::string_view name, RewriteFn fn) { rewrites_[Tessel::hashText(name)] = fn; }
    void counterMapIs(std::string_view name, CounterActionFn fn) {
        counterActions_[Tessel::hashText(name)] = fn;
    }

    /// Null for a name that is not bound. Names are told apart by their 64-bit hash.
    RewriteFn rewriteFn(const Tessel::TypeName& name) const noexcept {
        const RewriteFn* fn = rewrites_.find(name.hash());
        return fn != nullptr ? *fn : nullptr;
    }
    CounterActionFn counterActionFn(const Tessel::TypeName& name) const noexcept {
        const CounterActionFn* fn = counterActions_.find(name.hash());
        return fn != nullptr ? *fn : nullptr;
    }

  private:
    Tessel::FlatMap<RewriteFn> rewrites_;
    Tessel::FlatMap<CounterActionFn> counterActions_;
};

} // namespace Ovix
