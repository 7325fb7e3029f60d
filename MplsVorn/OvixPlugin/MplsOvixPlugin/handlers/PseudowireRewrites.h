#pragma once

#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "Ovix/rewrite/RewriteImpl.h"

namespace Ovix {

/// Sends an Ethernet frame over MPLS (RFC 4448): the label stack of the record goes in front, the
/// frame stays whole. The TTL of the entries is 255, their TC the class of the frame.
class EthOverMplsRewriteImpl : public MplsPushRewriteImpl,
                               public Tessel::Slabbed<EthOverMplsRewriteImpl> {
  public:
    explicit EthOverMplsRewriteImpl(const Ptr<const EthOverMplsRewriteInfo>& info) noexcept
        : MplsPushRewriteImpl(info->labels), info_(info) {}

    static Ptr<EthOverMplsRewriteImpl>
    EthOverMplsRewriteImplIs(const Ptr<const EthOverMplsRewriteInfo>& info);

    /// For the rewrite map: anything but an EthOverMplsRewriteInfo fails the assertion "info".
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);

    std::string_view name() const noexcept override { return "EthOverMplsRewriteImpl"; }
    bool doesAsRecorded() const noexcept override { return true; }
    Ptr<const RewriteInfo> baseInfo() const noexcept override { return info_; }

    /// The frame must start with a whole Ethernet header; that it does is asserted.
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;

  private:
    Ptr<const EthOverMplsRewriteInfo> info_;
};

Ptr<EthOverMplsRewriteImpl>
ethOverMplsRewriteImplFactory(const Ptr<const EthOverMplsRewriteInfo>& info);

/// Puts a pseudowire control word (Wire::ControlWord) between a label stack and its payload. All of
/// it is zero: no flags, a whole frame, frames not numbered. The stack is not touched.
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
    bool doesAsRecorded() const noexcept override { return true; }
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
