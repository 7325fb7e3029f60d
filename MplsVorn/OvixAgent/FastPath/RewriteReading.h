#pragma once

#include <optional>

#include "FastPath/Decision.h"
#include "Ovix/rewrite/RewriteImpl.h"

namespace OvixAgent {

/// The rewrites of a next hop as one record. Unset when no record has what they do, when they would
/// fail, or when somebody else than the host applies them.
std::optional<DecidedRewrite> readRewrites(const Ovix::RewriteInfos& infos, Ovix::Beneath beneath,
                                           const Ovix::RewriteInfoImplMap& map);

/// Whether labels are popped by the host's own implementation.
bool popsAsRecorded(const Ovix::RewriteInfoImplMap& map) noexcept;

} // namespace OvixAgent
