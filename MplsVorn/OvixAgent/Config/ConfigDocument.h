#pragma once

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace OvixAgent {

/// How the reader of a configuration gives up: "FILE:LINE: KEY: what is wrong". parseConfig() makes
/// a refusal of it.
class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// What bounds the time and the memory that reading a configuration takes: room for a million
/// routes. What exceeds them is refused.
namespace ConfigLimit {
inline constexpr std::size_t bytes = std::size_t{100} << 20U;
inline constexpr std::uint64_t values = 16'000'000; ///< keys, values, lists and maps; behind an
                                                    ///< alias they count each time
inline constexpr std::size_t textBytes = 65536;     ///< of one value
inline constexpr std::size_t depth = 100;           ///< of lists and maps within each other
} // namespace ConfigLimit

/// A YAML document as a compact, immutable tree that knows every node's line. Anchors and aliases
/// are resolved: an alias is the anchored node itself, so a node may have several parents, but
/// never itself as a descendant.
class ConfigDocument {
  public:
    enum class Kind : std::uint8_t { null, scalar, list, map };
    using NodeId = std::uint32_t;

    /// Throws ConfigError for text that is not one YAML document or exceeds a limit. Empty text is
    /// a null document, and when it is to stop. `file` names the text in errors.
    static ConfigDocument parse(const std::string& text, std::string file,
                                const std::stop_token& stop = {});

    const std::string& file() const noexcept { return file_; }
    NodeId root() const noexcept { return root_; }

    Kind kind(NodeId node) const { return nodes_[node].kind; }
    /// Counted from 1.
    std::size_t line(NodeId node) const { return nodes_[node].line; }
    /// A scalar's text.
    std::string_view text(NodeId node) const {
        assert(kind(node) == Kind::scalar);
        return std::string_view(text_).substr(nodes_[node].first, nodes_[node].count);
    }
    /// The number of a list's items or of a map's entries.
    std::size_t size(NodeId node) const { return nodes_[node].count; }
    NodeId item(NodeId list, std::size_t index) const {
        assert(kind(list) == Kind::list && index < size(list));
        return children_[nodes_[list].first + index];
    }
    /// A map's entries in file order; keys may be of any kind and may repeat.
    NodeId key(NodeId map, std::size_t index) const {
        assert(kind(map) == Kind::map && index < size(map));
        return children_[nodes_[map].first + 2 * index];
    }
    NodeId value(NodeId map, std::size_t index) const {
        return children_[nodes_[map].first + 2 * index + 1];
    }

  private:
    class Builder;

    /// A scalar's `first` and `count` are its place in text_; a container's, in children_.
    struct Node {
        std::uint32_t first = 0;
        std::uint32_t count = 0;
        std::uint32_t line = 0;
        Kind kind = Kind::null;
    };

    std::string file_;
    std::vector<Node> nodes_;
    std::vector<NodeId> children_;
    std::string text_;
    NodeId root_ = 0;
};

} // namespace OvixAgent
