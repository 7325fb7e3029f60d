#pragma once

#include "Ovix/rewrite/PseudowireRewriteInfos.h"
#include "Ovix/rewrite/RewriteImpl.h"

namespace Ovix {

/// Puts a pseudowire control word between a label stack and its payload (RFC 4385 section 3):
///
///      0                   1                   2                   3
///      0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1 2 3 4 5 6 7 8 9 0 1
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///     |0 0 0 0| Flags |FRG|  Length   |       Sequence Number         |
///     +-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+-+
///
/// All of it is zero: no flags, a whole frame, frames not numbered. The stack is not touched.
class ControlWordPushRewriteImpl : public RewriteImpl,
                                   public Tessel::Slabbed<ControlWordPushRewriteImpl> {
  public:
    explicit ControlWordPushRewriteImpl(const Ptr<const ControlWordPushRewriteInfo>& info) noexcept
        : info_(info) {}

    static Ptr<ControlWordPushRewriteImpl>
    ControlWordPushRewriteImplIs(const Ptr<const ControlWordPushRewriteInfo>& info);

    /// For the rewrite map: anything but a ControlWordPushRewriteInfo fails the assertion "info".
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);

    std::string_view name() const noexcept override { return "ControlWordPushRewriteImpl"; }
    Ptr<const RewriteInfo> baseInfo() const noexcept override { return info_; }

    /// Moves the frame to a packet of its own that is four bytes longer. The frame must start with
    /// MPLS; that it does is asserted.
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;

  private:
    Ptr<const ControlWordPushRewriteInfo> info_;
};

Ptr<ControlWordPushRewriteImpl>
controlWordPushRewriteImplFactory(const Ptr<const ControlWordPushRewriteInfo>& info);

} // namespace Ovix
