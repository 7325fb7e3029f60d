#pragma once

#include <cstdint>
#include <optional>
#include <utility>

#include "Lumo/MplsLabel.h"
#include "Mpls/LfibStatus.h"
#include "Wire/View.h"

namespace OvixAgent {

/// What says in which VRF the IP packet of a frame is routed.
struct VrfSource {
    enum class Kind : std::uint8_t {
        port,      ///< it has no label, or none but explicit nulls and entropy labels
        lastLabel, ///< what the last label leads to
        /// A label above such ones: they are popped wherever they are (RFC 4182 section 2, RFC 6790
        /// section 4.1), and mean what is above them.
        labelAbove
    };

    Kind kind = Kind::port;
    Lumo::MplsLabel label{}; ///< of a label above

    /// From a frame as it came in.
    static VrfSource of(Wire::Bytes frame) noexcept;
};

/// The VRFs that labels lead to.
class LabelVrfs {
  public:
    /// Null: there are no tables.
    explicit LabelVrfs(Ptr<Mpls::LfibStatus> decap) noexcept : decap_(std::move(decap)) {}

    /// Unset when the label does not lead to a lookup.
    std::optional<L3::VrfName> of(Lumo::MplsLabel label) const;

  private:
    Ptr<Mpls::LfibStatus> decap_;
};

} // namespace OvixAgent
