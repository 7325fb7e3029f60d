#pragma once

#include "Ovix/rewrite/ImposedLabels.h"
#include "Ovix/rewrite/RewriteImpl.h"
#include "Ovix/routing/RewriteInfo.h"

namespace Ovix {

/// Send an Ethernet frame over MPLS, whole as it is (RFC 4448 raw mode): the tunnel labels, and the
/// pseudowire label innermost, are pushed in front of it.
class EthOverMplsRewriteInfo final : public RewriteInfo,
                                     public Tessel::Slabbed<EthOverMplsRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"EthOverMplsRewriteInfo"};

    /// `operation` gives the labels; TTL and TC of the entries are the rewrite's business.
    explicit EthOverMplsRewriteInfo(const Lumo::UnboundedMplsLabelOperation& operation)
        : labels(operation) {}
    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }

    const ImposedLabels labels;
};

/// Put a pseudowire control word (RFC 4385 section 3) between the label stack and its payload.
class ControlWordPushRewriteInfo final : public RewriteInfo,
                                         public Tessel::Slabbed<ControlWordPushRewriteInfo> {
  public:
    static constexpr Tessel::TypeName infoTypeName{"ControlWordPushRewriteInfo"};

    const Tessel::TypeName& typeName() const noexcept override { return infoTypeName; }
};

} // namespace Ovix

extern template class Tessel::Slabbed<Ovix::EthOverMplsRewriteInfo>;
extern template class Tessel::Slabbed<Ovix::ControlWordPushRewriteInfo>;

namespace Ovix {

/// What rewrites have in common that put a label stack in front of a frame they leave as it is.
class MplsPushRewriteImpl : public RewriteImpl {
  protected:
    /// `labels` belongs to the record that the rewrite was made from, which the rewrite holds.
    explicit MplsPushRewriteImpl(const ImposedLabels& labels) noexcept : labels_(&labels) {}

    /// Pushes the labels of the record, or `label` alone when the record names none, and makes the
    /// packet one that starts with MPLS. Every entry gets this TTL and this TC. `ontoLabels` says
    /// that what lies beneath is a label stack itself; otherwise the innermost of the entries is
    /// the bottom of the stack (RFC 3032 section 2.1). Fails, with nothing done, when the packet
    /// would grow beyond what a packet holds; a label of more than 20 bits throws RangeError.
    Ptr<RoutingException> applyMplsEncap(const Ptr<RoutingContext>& context, unsigned label,
                                         std::uint8_t ttl, std::uint8_t tc, bool ontoLabels) const;

  private:
    const ImposedLabels* labels_;
};

} // namespace Ovix
