#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <unordered_map>

#include "Config/ConfigReader.h"
#include "Config/ConfigText.h"

namespace OvixAgent {

ConfigMap::ConfigMap(const ConfigValue& value) : value_(value) {
    value_.expect(ConfigValue::Kind::map, "a map");
    std::unordered_map<std::string_view, std::size_t> lines; // for maps of any size
    for (std::size_t i = 0; i < size(); ++i) {
        checkKey(i);
        for (std::size_t j = 0; j < i && size() <= maxKeys; ++j) {
            if (key(j) == key(i)) {
                failDuplicate(i, lineOfKey(j));
            }
        }
        if (size() > maxKeys) {
            const auto [first, isNew] = lines.emplace(key(i), lineOfKey(i));
            if (!isNew) {
                failDuplicate(i, first->second);
            }
        }
    }
}

std::size_t ConfigMap::lineOfKey(std::size_t index) const {
    return document().line(document().key(value_.node_, index));
}

void ConfigMap::checkKey(std::size_t index) const {
    const ConfigDocument::NodeId key = document().key(value_.node_, index);
    if (document().kind(key) != ConfigValue::Kind::scalar || document().text(key).empty()) {
        value_.failAt(document().line(key), value_.path(), "a key must be a non-empty word");
    }
}

void ConfigMap::failDuplicate(std::size_t index, std::size_t firstLine) const {
    value_.failAt(
        lineOfKey(index), value_.pathOf(key(index)),
        fmt::format("the key {} is already given at line {}", inQuotes(key(index)), firstLine));
}

void ConfigMap::failUnknown(std::size_t index, std::span<const std::string_view> known) const {
    value_.failAt(
        lineOfKey(index), value_.pathOf(key(index)),
        fmt::format("unknown key {}{}", inQuotes(key(index)), suggestion(key(index), known)));
}

bool ConfigMap::isAsked(std::string_view key) const {
    return std::find(asked().begin(), asked().end(), key) != asked().end();
}

void ConfigMap::refuseOthers() const {
    for (std::size_t i = 0; i < size(); ++i) {
        if (!isAsked(key(i))) {
            failUnknown(i, asked());
        }
    }
}

std::string_view ConfigMap::key(std::size_t index) const {
    return document().text(document().key(value_.node_, index));
}

ConfigValue ConfigMap::at(std::size_t index) const {
    return {&value_, document().value(value_.node_, index), key(index), 0};
}

std::optional<ConfigValue> ConfigMap::find(std::string_view wanted) const {
    if (!isAsked(wanted)) {
        assert(askedCount_ < maxKeys);
        asked_[askedCount_++] = wanted;
    }
    for (std::size_t i = 0; i < size(); ++i) {
        if (key(i) == wanted) {
            return at(i);
        }
    }
    return std::nullopt;
}

ConfigValue ConfigMap::required(std::string_view key, const std::string& why) const {
    if (const std::optional<ConfigValue> found = find(key)) {
        return *found;
    }
    for (std::size_t i = 0; i < size(); ++i) {
        if (!isAsked(this->key(i)) && !nearestName(this->key(i), std::span(&key, 1)).empty()) {
            failUnknown(i, std::span(&key, 1));
        }
    }
    failFor(key, "missing" + why);
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
