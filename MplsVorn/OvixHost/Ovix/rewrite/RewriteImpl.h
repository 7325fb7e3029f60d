#pragma once

#include <string_view>

#include "Ovix/routing/RewriteInfo.h"
#include "Ovix/routing/RoutingContext.h"

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
};

/// Runs one counter action, after all rewrites of a frame that is sent.
class CounterActionImpl : public Tessel::Counted {
  public:
    virtual std::string_view name() const noexcept = 0;
    virtual void apply(const Ptr<RoutingContext>& context) = 0;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::RoutingException>;
