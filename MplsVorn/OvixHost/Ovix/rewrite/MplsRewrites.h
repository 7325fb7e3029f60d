#pragma once

#include "Mpls/Types.h"
#include "Ovix/rewrite/ImposedLabels.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "Tessel/Slab.h"

namespace Ovix {

// The MPLS rewrites: a record that is made when the frame is routed, and what applies it when the
// frame is sent. All of them work in place. However many of them a frame meets, its TTL is
// decremented once (RFC 3443).

/// Swap the top label: the last label of the operation replaces it, the others are pushed above.
/// TC stays unless set (RFC 3270 section 2.6); the labels above have the same one unless theirs is
/// set.
class MplsSwapRewriteInfo final : public RewriteInfo, public Tessel::Slabbed<MplsSwapRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"MplsSwap"};

    MplsSwapRewriteInfo(const Lumo::UnboundedMplsLabelOperation& operation, Mpls::TtlMode mode)
        : labels(operation), ttlMode(mode) {}
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }

    const ImposedLabels labels;
    const Mpls::TtlMode ttlMode;
};

/// Pop the top label. Uniform: what it carried takes over its TTL (RFC 3443 section 3.1). With
/// `exposeTc` it takes over the label's class, too (RFC 3270 section 2.6.3).
class MplsPopRewriteInfo final : public RewriteInfo, public Tessel::Slabbed<MplsPopRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"MplsPop"};

    MplsPopRewriteInfo(Mpls::PayloadType payloadType, Mpls::TtlMode mode, bool exposeTc = false)
        : payload(payloadType), ttlMode(mode), exposesTc(exposeTc) {}
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }

    const Mpls::PayloadType payload; ///< what lies under the last label
    const Mpls::TtlMode ttlMode;
    const bool exposesTc;
};

/// Push labels onto a labelled frame or an IP packet. TC comes from what lies beneath unless set,
/// and so does the TTL in uniform mode.
class MplsIpPushRewriteInfo final : public RewriteInfo,
                                    public Tessel::Slabbed<MplsIpPushRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"MplsIpPush"};

    MplsIpPushRewriteInfo(const Lumo::UnboundedMplsLabelOperation& operation, Mpls::TtlMode mode)
        : labels(operation), ttlMode(mode) {}
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }

    const ImposedLabels labels;
    const Mpls::TtlMode ttlMode;
};

/// Take this router's decrement from the TTL of the outermost header.
class MplsTtlRewriteInfo final : public RewriteInfo, public Tessel::Slabbed<MplsTtlRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"MplsTtl"};

    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
};

/// Holds the record that an implementation was made from.
template <typename Info>
class RewriteImplOf : public RewriteImpl {
  public:
    explicit RewriteImplOf(Ptr<Info> info) noexcept : info_(std::move(info)) {}
    Ptr<const RewriteInfo> baseInfo() const noexcept override { return info_; }

  protected:
    const Info& info() const noexcept { return *info_; }

  private:
    Ptr<Info> info_;
};

class MplsSwapRewriteImpl final : public RewriteImplOf<MplsSwapRewriteInfo>,
                                  public Tessel::Slabbed<MplsSwapRewriteImpl> {
  public:
    using RewriteImplOf::RewriteImplOf;
    /// An absent or other record fails the assertion "info"; so for all four.
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);
    std::string_view name() const noexcept override { return "MplsSwapRewriteImpl"; }
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;
};

class MplsPopRewriteImpl final : public RewriteImplOf<MplsPopRewriteInfo>,
                                 public Tessel::Slabbed<MplsPopRewriteImpl> {
  public:
    using RewriteImplOf::RewriteImplOf;
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);
    std::string_view name() const noexcept override { return "MplsPopRewriteImpl"; }
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;
};

class MplsIpPushRewriteImpl final : public RewriteImplOf<MplsIpPushRewriteInfo>,
                                    public Tessel::Slabbed<MplsIpPushRewriteImpl> {
  public:
    using RewriteImplOf::RewriteImplOf;
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);
    std::string_view name() const noexcept override { return "MplsIpPushRewriteImpl"; }
    const MplsIpPushRewriteInfo& pushed() const noexcept { return info(); }
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;
};

class MplsTtlRewriteImpl final : public RewriteImplOf<MplsTtlRewriteInfo>,
                                 public Tessel::Slabbed<MplsTtlRewriteImpl> {
  public:
    using RewriteImplOf::RewriteImplOf;
    static Ptr<RewriteImpl> fromInfo(const Ptr<RewriteInfo>& info);
    std::string_view name() const noexcept override { return "MplsTtlRewriteImpl"; }
    Ptr<RoutingException> apply(const Ptr<RoutingContext>& context) override;
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::MplsSwapRewriteInfo>;
extern template class Tessel::Slabbed<Ovix::MplsPopRewriteInfo>;
extern template class Tessel::Slabbed<Ovix::MplsIpPushRewriteInfo>;
extern template class Tessel::Slabbed<Ovix::MplsTtlRewriteInfo>;
extern template class Tessel::Slabbed<Ovix::MplsSwapRewriteImpl>;
extern template class Tessel::Slabbed<Ovix::MplsPopRewriteImpl>;
extern template class Tessel::Slabbed<Ovix::MplsIpPushRewriteImpl>;
extern template class Tessel::Slabbed<Ovix::MplsTtlRewriteImpl>;
