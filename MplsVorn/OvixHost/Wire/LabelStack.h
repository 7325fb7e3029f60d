#pragma once

#include "Lumo/MplsLabel.h"
#include "Wire/View.h"

namespace Wire {

/// Walks a label stack (RFC 3032) from the top to its bottom; Lumo::MplsLabelEntry has the drawing
/// of an entry.
class LabelWalk {
  public:
    explicit LabelWalk(Bytes bytes) noexcept : rest_(bytes) {}

    /// False when the bottom has been passed or no whole entry is left.
    bool next(Lumo::MplsLabelEntry& entry) noexcept {
        if (isAtBottom_ || rest_.size() < Lumo::MplsLabelEntry::size) {
            return false;
        }
        entry = Lumo::MplsLabelEntry::load(rest_.data());
        rest_ = rest_.subspan(Lumo::MplsLabelEntry::size);
        isAtBottom_ = entry.bos();
        return true;
    }

    /// Whether the entry at the bottom of the stack has been passed.
    bool isAtBottom() const noexcept { return isAtBottom_; }
    /// What follows the entries passed.
    Bytes rest() const noexcept { return rest_; }

  private:
    Bytes rest_;
    bool isAtBottom_ = false;
};

} // namespace Wire
