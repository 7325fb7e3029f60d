#pragma once

#include "Ovix/rewrite/ImposedLabels.h"
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
