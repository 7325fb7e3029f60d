#include "Explain/HeaderWords.h"

#include <algorithm>
#include <charconv>
#include <fmt/format.h>
#include <utility>

#include "Config/ConfigText.h"

namespace OvixAgent {

std::optional<Lumo::EthAddr> macFromText(std::string_view text) {
    constexpr std::size_t macTextSize = 17;
    Lumo::EthAddr mac{};
    bool isMac = text.size() == macTextSize;
    for (std::size_t i = 0; isMac && i < mac.size(); ++i) {
        const char* const from = text.data() + 3 * i;
        const auto [end, error] = std::from_chars(from, from + 2, mac[i], 16);
        isMac = error == std::errc() && end == from + 2 && (i + 1 == mac.size() || *end == ':');
    }
    return isMac ? std::optional(mac) : std::nullopt;
}

std::vector<HeaderWords> HeaderWords::of(std::string_view text) {
    std::vector<HeaderWords> headers;
    std::vector<Word> words;
    std::size_t place = 0;
    for (std::size_t at = 0; at <= text.size();) {
        if (at == text.size() || text[at] == ',') {
            headers.emplace_back(std::exchange(words, {}), place);
            ++at;
            continue;
        }
        if (text[at] == ' ' || text[at] == '/' || text[at] == '\n' || text[at] == '\t') {
            ++at;
            continue;
        }
        const std::size_t end =
            text[at] == '>' ? at + 1 : std::min(text.find_first_of(" /,>\n\t", at), text.size());
        words.push_back({text.substr(at, end - at), place++});
        at = end;
    }
    return headers;
}

std::string_view HeaderWords::take(std::string_view what) {
    if (empty()) {
        throw WordRefused{end_, fmt::format("{} is missing", what)};
    }
    return words_[next_++].text;
}

bool HeaderWords::takeIf(std::string_view word) {
    const bool is = !empty() && words_[next_].text == word;
    next_ += is ? 1U : 0U;
    return is;
}

void HeaderWords::requireFirst(std::string_view field) {
    if (std::find(fields_.begin(), fields_.end(), field) != fields_.end()) {
        throw WordRefused{words_[next_ - 1].place, fmt::format("{} is given twice", field)};
    }
    fields_.push_back(field);
}

std::uint64_t HeaderWords::takeNumber(std::string_view what, std::uint64_t most) {
    const std::size_t at = place();
    const std::string_view text = take(what);
    const int base = text.starts_with("0x") ? 16 : 10;
    const std::string_view digits = text.substr(base == 16 ? 2 : 0);
    std::uint64_t value = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    if (error != std::errc() || end != digits.data() + digits.size() || value > most) {
        throw WordRefused{at,
                          fmt::format("{} as {}: a number of 0 to {}", inQuotes(text), what, most)};
    }
    return value;
}

Lumo::EthAddr HeaderWords::takeMac(std::string_view what) {
    const std::size_t at = place();
    const std::string_view text = take(what);
    const auto mac = macFromText(text);
    if (!mac) {
        throw WordRefused{at, fmt::format("{} is no MAC address", inQuotes(text))};
    }
    return *mac;
}

Lumo::IpGenAddr HeaderWords::takeAddress(std::string_view what) {
    const std::size_t at = place();
    const std::string text(take(what));
    const Lumo::IpGenAddr address = Lumo::IpGenAddr::fromText(text);
    if (address.family() == Lumo::IpFamily::none) {
        throw WordRefused{at, fmt::format("{} is no IP address", inQuotes(text))};
    }
    return address;
}

} // namespace OvixAgent
