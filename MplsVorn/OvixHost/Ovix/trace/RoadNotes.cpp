#include "Ovix/trace/RoadNotes.h"

#include <algorithm>
#include <cassert>

namespace Ovix {

namespace {

RoadNotes::Listener& heldListener() {
    static RoadNotes::Listener listener;
    return listener;
}

} // namespace

bool RoadNotes::isOn_ = false;

const std::string* RoadNote::value(std::string_view name) const noexcept {
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&](const Field& field) { return field.name == name; });
    return found != fields.end() ? &found->value : nullptr;
}

void RoadNotes::listenerIs(Listener listener) {
    heldListener() = std::move(listener);
    isOn_ = static_cast<bool>(heldListener());
}

void RoadNotes::report(RoadNote note) {
    assert(isOn_);
    heldListener()(std::move(note));
}

} // namespace Ovix
