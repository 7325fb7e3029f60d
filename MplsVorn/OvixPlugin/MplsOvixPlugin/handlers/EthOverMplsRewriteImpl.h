#pragma once

#include "Ovix/rewrite/MplsPushRewriteImpl.h"
#include "Ovix/rewrite/PseudowireRewriteInfos.h"

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
    Ptr<const RewriteInfo> baseInfo() const noexcept override { return info_; }

    /// The frame must start with a whole Ethernet header; that it does is asserted.
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;

  private:
    Ptr<const EthOverMplsRewriteInfo> info_;
};

Ptr<EthOverMplsRewriteImpl>
ethOverMplsRewriteImplFactory(const Ptr<const EthOverMplsRewriteInfo>& info);

} // namespace Ovix
