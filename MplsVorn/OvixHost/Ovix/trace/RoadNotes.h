#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Ovix/trace/Trace.h"
#include "Ovix/trace/TraceFormat.h"

namespace Ovix {

/// What a frame met at one step of its road: a table that was asked, a via that was chosen, an MTU
/// that was compared.
struct RoadNote {
    struct Field {
        std::string_view name;
        std::string value;
        bool isNumber = false;
    };

    std::string_view step;
    std::vector<Field> fields;

    /// Null when there is no such field.
    const std::string* value(std::string_view name) const noexcept;

    template <typename Value>
    RoadNote& with(std::string_view name, const Value& value) {
        if constexpr (std::convertible_to<Value, std::string>) {
            fields.push_back({name, std::string(value)});
        } else {
            TraceLine text;
            text << value;
            fields.push_back({name, std::string(text.view()), std::integral<Value>});
        }
        return *this;
    }
};

/// Where notes about frames go, for whoever explains one: a single listener for the process, set by
/// the thread that forwards. While there is none, a frame costs one look at each step, and nothing
/// is formatted.
class RoadNotes {
  public:
    using Listener = std::function<void(RoadNote)>;

    static bool isOn() noexcept { return isOn_; }
    /// An empty one ends it.
    static void listenerIs(Listener listener);

    /// To be called while it is on.
    template <typename... Fields>
    [[gnu::noinline, gnu::cold]] static void add(std::string_view step, const Fields&... fields) {
        RoadNote note{step, {}};
        (note.with(fields.first, fields.second), ...);
        report(std::move(note));
    }
    static void report(RoadNote note);

  private:
    static bool isOn_;
};

/// A field of a note.
template <typename Value>
std::pair<std::string_view, const Value&> field(std::string_view name, const Value& value) {
    return {name, value};
}

} // namespace Ovix
