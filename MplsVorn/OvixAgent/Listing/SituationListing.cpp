#include "Listing/SituationListing.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Summary/JsonText.h"

namespace OvixAgent {

namespace {

using Json = nlohmann::ordered_json;

Listing textListing(std::shared_ptr<const std::string> text) {
    return [text = std::move(text), next = std::size_t{0}](std::string& entry) mutable {
        constexpr std::size_t blockBytes = 2048;
        if (text == nullptr || next >= text->size()) {
            return false;
        }
        const std::size_t end = text->find('\n', std::min(next + blockBytes, text->size()));
        const std::size_t size = end == std::string::npos ? text->size() - next : end + 1 - next;
        entry = dumped(Json(text->substr(next, size)));
        next += size;
        return true;
    };
}

} // namespace

ControlAnswer situationAnswer(const SituationFacts& facts,
                              std::shared_ptr<const std::string> text) {
    std::string start = dumped(Json{{"ok", true},
                                    {"version", facts.version},
                                    {"run", facts.run},
                                    {"file", facts.file},
                                    {"plugin", facts.plugin},
                                    {"tables", facts.tables},
                                    {"generation", facts.generation},
                                    {"anyMac", facts.anyMac}});
    start.pop_back();
    return {start + R"(,"config":[)", textListing(std::move(text)), "]}"};
}

} // namespace OvixAgent
