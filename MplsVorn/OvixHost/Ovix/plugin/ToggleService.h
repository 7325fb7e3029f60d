#pragma once

#include <functional>
#include <string_view>

namespace Ovix {

/// The feature toggles of the device, kept in toggle files.
class ToggleService {
  public:
    /// Answers for a toggle of a toggle file; gets the default to return when nothing is set.
    using Source =
        std::function<bool(std::string_view file, std::string_view toggle, bool byDefault)>;

    static ToggleService& instance();

    /// The agent says where toggles are read from before it starts its plugins; without a source
    /// every toggle has its default.
    void sourceIs(Source source) { source_ = std::move(source); }

    bool toggleEnabled(std::string_view file, std::string_view toggle, bool byDefault) const {
        return source_ ? source_(file, toggle, byDefault) : byDefault;
    }

  private:
    Source source_;
};

} // namespace Ovix
