#include <algorithm>
#include <fmt/format.h>
#include <unordered_map>

#include "Config/ConfigReader.h"
#include "Config/ConfigText.h"

namespace OvixAgent {

ConfigMap::ConfigMap(const ConfigValue& value, std::span<const std::string_view> knownKeys)
    : value_(value) {
    value_.expect(ConfigValue::Kind::map, "a map");
    checkKnown(knownKeys);
}

ConfigMap::ConfigMap(const ConfigValue& value, std::initializer_list<std::string_view> knownKeys)
    : ConfigMap(value, std::span(knownKeys.begin(), knownKeys.size())) {}

ConfigMap::ConfigMap(const ConfigValue& value) : value_(value) {
    value_.expect(ConfigValue::Kind::map, "a map");
    std::unordered_map<std::string_view, std::size_t> lines;
    for (std::size_t i = 0; i < size(); ++i) {
        const std::size_t line = document().line(document().key(value_.node_, i));
        const auto [first, isNew] = lines.emplace(checkedKey(i), line);
        if (!isNew) {
            failDuplicate(i, first->second);
        }
    }
}

void ConfigMap::checkKnown(std::span<const std::string_view> knownKeys) const {
    for (std::size_t i = 0; i < size(); ++i) {
        const std::string_view key = checkedKey(i);
        if (std::find(knownKeys.begin(), knownKeys.end(), key) == knownKeys.end()) {
            const std::size_t line = document().line(document().key(value_.node_, i));
            value_.failAt(
                line, value_.pathOf(key),
                fmt::format("unknown key {}{}", inQuotes(key), suggestion(key, knownKeys)));
        }
        // Quadratic only in the number of known keys, as an unknown key ends the reading.
        for (std::size_t j = 0; j < i; ++j) {
            const ConfigDocument::NodeId earlier = document().key(value_.node_, j);
            if (document().text(earlier) == key) {
                failDuplicate(i, document().line(earlier));
            }
        }
    }
}

std::string_view ConfigMap::checkedKey(std::size_t index) const {
    const ConfigDocument::NodeId key = document().key(value_.node_, index);
    if (document().kind(key) != ConfigValue::Kind::scalar || document().text(key).empty()) {
        value_.failAt(document().line(key), value_.path(), "a key must be a non-empty word");
    }
    return document().text(key);
}

void ConfigMap::failDuplicate(std::size_t index, std::size_t firstLine) const {
    const ConfigDocument::NodeId key = document().key(value_.node_, index);
    const std::string_view text = document().text(key);
    value_.failAt(document().line(key), value_.pathOf(text),
                  fmt::format("the key {} is already given at line {}", inQuotes(text), firstLine));
}

std::string_view ConfigMap::key(std::size_t index) const {
    return document().text(document().key(value_.node_, index));
}

ConfigValue ConfigMap::at(std::size_t index) const {
    return {&value_, document().value(value_.node_, index), key(index), 0};
}

std::optional<ConfigValue> ConfigMap::find(std::string_view wanted) const {
    for (std::size_t i = 0; i < size(); ++i) {
        if (key(i) == wanted) {
            return at(i);
        }
    }
    return std::nullopt;
}

ConfigValue ConfigMap::required(std::string_view key) const {
    const std::optional<ConfigValue> found = find(key);
    if (!found) {
        failFor(key, "missing");
    }
    return *found;
}

bool ConfigMap::booleanOr(std::string_view key, bool otherwise) const {
    const std::optional<ConfigValue> found = find(key);
    return found ? found->boolean() : otherwise;
}

void ConfigMap::failFor(std::string_view key, const std::string& what) const {
    const std::optional<ConfigValue> found = find(key);
    value_.failAt(found ? found->line() : value_.line(), value_.pathOf(key), what);
}

} // namespace OvixAgent
