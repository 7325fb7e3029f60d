#include "Config/ConfigReader.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <vector>

#include "Config/Config.h"
#include "Config/ConfigText.h"

namespace OvixAgent {

namespace {

std::string_view kindName(ConfigValue::Kind kind) {
    switch (kind) {
    case ConfigValue::Kind::null:
        return "nothing";
    case ConfigValue::Kind::scalar:
        return "a single value";
    case ConfigValue::Kind::list:
        return "a list";
    case ConfigValue::Kind::map:
        return "a map";
    }
    return "";
}

constexpr std::size_t longestPlainKey = 100;

/// The key as it stands in a path; quoted unless it is a plain word.
std::string pathKey(std::string_view key) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '-' || c == '_' || c == '.';
    };
    const bool allPlain = std::all_of(key.begin(), key.end(), isPlain);
    return allPlain && key.size() <= longestPlainKey ? std::string(key) : inQuotes(key);
}

bool isNumber(std::string_view text) {
    const std::string_view digits = text.starts_with('-') ? text.substr(1) : text;
    // A leading zero is refused: some YAML readers take it for octal.
    return !digits.empty() && (digits.front() != '0' || digits.size() == 1) &&
           std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
}

} // namespace

void ConfigValue::failAt(std::size_t line, const std::string& path, const std::string& what) const {
    throw ConfigError(fmt::format("{}:{}: {}{}{}", document_->file(), line, path,
                                  path.empty() ? "" : ": ", what));
}

void ConfigValue::fail(const std::string& what) const {
    failAt(line(), path(), what);
}

std::string ConfigValue::path() const {
    std::vector<const ConfigValue*> steps;
    for (const ConfigValue* step = this; step->parent_ != nullptr; step = step->parent_) {
        steps.push_back(step);
    }
    std::reverse(steps.begin(), steps.end());
    std::string result;
    for (const ConfigValue* step : steps) {
        if (step->key_.empty()) {
            result += fmt::format("[{}]", step->index_);
        } else {
            result += result.empty() ? "" : ".";
            result += pathKey(step->key_);
        }
    }
    return result;
}

std::string ConfigValue::pathOf(std::string_view key) const {
    const std::string mine = path();
    return fmt::format("{}{}{}", mine, mine.empty() ? "" : ".", pathKey(key));
}

void ConfigValue::expect(Kind expected, std::string_view what) const {
    if (kind() == expected) {
        return;
    }
    fail(fmt::format("expected {}, found {}", what,
                     kind() == Kind::scalar ? inQuotes(document_->text(node_))
                                            : std::string(kindName(kind()))));
}

std::size_t ConfigValue::listSize() const {
    expect(Kind::list, "a list");
    return document_->size(node_);
}

ConfigValue ConfigValue::item(std::size_t index) const& {
    return {this, document_->item(node_, index), {}, index};
}

std::string_view ConfigValue::text(std::string_view noun) const {
    expect(Kind::scalar, noun);
    return document_->text(node_);
}

std::uint64_t ConfigValue::readNumber(std::string_view noun, std::uint64_t min,
                                      std::uint64_t max) const {
    expect(Kind::scalar, noun);
    const std::string_view digits = document_->text(node_);
    if (!isNumber(digits)) {
        fail(fmt::format("{} {} is not a decimal number", noun, inQuotes(digits)));
    }
    std::uint64_t value = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (result.ec != std::errc() || value < min || value > max) {
        const std::string_view shown = digits.substr(0, 40);
        fail(fmt::format("{} {} is out of range ({}..{})", noun, shown, min, max));
    }
    return value;
}

bool ConfigValue::boolean() const {
    expect(Kind::scalar, "true or false");
    const std::string_view word = document_->text(node_);
    if (word == "true") {
        return true;
    }
    if (word != "false") {
        fail(fmt::format("{} is not true or false", inQuotes(word)));
    }
    return false;
}

std::string ConfigValue::name(std::string_view noun, std::size_t maxBytes) const {
    const std::string_view result = text(noun);
    if (result.empty() || result.size() > maxBytes) {
        fail(fmt::format("{} {} has {} bytes, allowed are 1 to {}", noun, inQuotes(result),
                         result.size(), maxBytes));
    }
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (std::any_of(result.begin(), result.end(), isControl)) {
        fail(fmt::format("{} {} contains a control character", noun, inQuotes(result)));
    }
    return std::string(result);
}

void ConfigValue::failChoice(std::string_view noun, std::span<const std::string_view> words) const {
    const std::string_view word = text(noun);
    fail(fmt::format("unknown {} {}{}", noun, inQuotes(word), suggestion(word, words)));
}

} // namespace OvixAgent
