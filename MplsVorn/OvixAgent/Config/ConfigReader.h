#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Config/ConfigDocument.h"
#include "Tessel/Words.h"

namespace OvixAgent {

/// A place in a configuration document: a node and the path to it, so that every error can name
/// file, line, key and value. A value refers to the one it was reached through, which must outlive
/// it. All readers throw ConfigError when the node is of another kind or out of range.
class ConfigValue {
  public:
    using Kind = ConfigDocument::Kind;

    /// The document's root.
    explicit ConfigValue(const ConfigDocument& document)
        : document_(&document), node_(document.root()) {}

    Kind kind() const { return document_->kind(node_); }
    std::size_t line() const { return document_->line(node_); }

    /// The number of items of a list; anything else is an error.
    std::size_t listSize() const;
    ConfigValue item(std::size_t index) const&;
    ConfigValue item(std::size_t index) const&& = delete;

    /// `noun` names the value in errors: "label 1048576 is out of range (0..1048575)".
    template <std::unsigned_integral Number>
    Number number(std::string_view noun, Number min, Number max) const {
        return static_cast<Number>(readNumber(noun, min, max));
    }
    bool boolean() const;
    std::string_view text(std::string_view noun) const;
    /// Text of 1 to `maxBytes` bytes without control characters.
    std::string name(std::string_view noun, std::size_t maxBytes) const;
    /// One of the words of an enumeration.
    template <typename Value>
    Value choice(std::string_view noun) const {
        const std::optional<Value> value = Tessel::valueOf<Value>(text(noun));
        if (!value) {
            failChoice(noun, Tessel::wordList<Value>());
        }
        return *value;
    }

    /// Throws ConfigError for this place.
    [[noreturn]] void fail(const std::string& what) const;

  private:
    friend class ConfigMap;

    ConfigValue(const ConfigValue* parent, ConfigDocument::NodeId node, std::string_view key,
                std::size_t index)
        : document_(parent->document_), node_(node), parent_(parent), key_(key), index_(index) {}

    [[noreturn]] void failAt(std::size_t line, const std::string& path,
                             const std::string& what) const;
    [[noreturn]] void failChoice(std::string_view noun,
                                 std::span<const std::string_view> words) const;
    void expect(Kind kind, std::string_view what) const;
    std::uint64_t readNumber(std::string_view noun, std::uint64_t min, std::uint64_t max) const;
    std::string path() const;
    std::string pathOf(std::string_view key) const;

    const ConfigDocument* document_;
    ConfigDocument::NodeId node_;
    const ConfigValue* parent_ = nullptr;
    std::string_view key_; ///< empty for an item of a list
    std::size_t index_ = 0;
};

/// A map, each key of which is a word that is there once. It remembers which keys it was asked for,
/// so that the others can be refused. Refers to `value`, which must outlive it.
class ConfigMap {
  public:
    explicit ConfigMap(const ConfigValue& value);
    explicit ConfigMap(ConfigValue&&) = delete;

    std::size_t size() const { return document().size(value_.node_); }
    std::string_view key(std::size_t index) const;
    ConfigValue at(std::size_t index) const;

    /// `key` is a literal, or from a table of words.
    std::optional<ConfigValue> find(std::string_view key) const;
    /// Throws ConfigError when the key is missing, for the one that looks like its misspelling when
    /// there is one; keys that resemble it have to be asked for before.
    /// `why` is added to the error.
    ConfigValue required(std::string_view key, const std::string& why = {}) const;

    template <std::unsigned_integral Number>
    Number numberOr(std::string_view key, Number min, Number max, Number otherwise) const {
        const std::optional<ConfigValue> found = find(key);
        return found ? found->number<Number>(key, min, max) : otherwise;
    }
    template <std::unsigned_integral Number>
    std::optional<Number> optionalNumber(std::string_view key, Number min, Number max) const {
        const std::optional<ConfigValue> found = find(key);
        return found ? std::optional<Number>(found->number<Number>(key, min, max)) : std::nullopt;
    }
    bool booleanOr(std::string_view key, bool otherwise) const;
    template <typename Value>
    Value choiceOr(std::string_view key, Value otherwise) const {
        const std::optional<ConfigValue> found = find(key);
        return found ? found->choice<Value>(key) : otherwise;
    }

    /// Throws ConfigError for `key` of this map, whether it is there or not.
    [[noreturn]] void failFor(std::string_view key, const std::string& what) const;

    /// To be called at the end: throws ConfigError for a key that nobody has asked for, naming the
    /// nearest one that is known.
    void refuseOthers() const;

  private:
    static constexpr std::size_t maxKeys = 24;

    const ConfigDocument& document() const { return *value_.document_; }
    std::span<const std::string_view> asked() const { return std::span(asked_).first(askedCount_); }
    bool isAsked(std::string_view key) const;
    std::size_t lineOfKey(std::size_t index) const;
    void checkKey(std::size_t index) const;
    [[noreturn]] void failUnknown(std::size_t index, std::span<const std::string_view> known) const;
    [[noreturn]] void failDuplicate(std::size_t index, std::size_t firstLine) const;

    const ConfigValue& value_;
    mutable std::array<std::string_view, maxKeys> asked_;
    mutable std::size_t askedCount_ = 0;
};

} // namespace OvixAgent
