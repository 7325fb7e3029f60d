#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "Command/Run.h"
#include "Config/ConfigText.h"
#include "Ovix/plugin/OvixPlugin.h"

namespace OvixAgent {

namespace {

std::optional<bool> toggleInFile(const std::filesystem::path& path, const std::string& toggle) {
    std::error_code unreadable;
    const auto status = std::filesystem::status(path, unreadable);
    if (status.type() == std::filesystem::file_type::not_found) {
        return std::nullopt;
    }
    std::ifstream file(path);
    if (!std::filesystem::is_regular_file(status) || !file) {
        throw std::runtime_error(path.string() + ": not a readable file");
    }
    const auto json = nlohmann::json::parse(file, nullptr, false);
    if (!json.is_object()) {
        throw std::runtime_error(path.string() + ": not a JSON object of toggles");
    }
    const auto found = json.find(toggle);
    if (found == json.end()) {
        return std::nullopt;
    }
    if (!found->is_boolean()) {
        throw std::runtime_error(path.string() + ": " + toggle + ": " + found->dump() +
                                 " is neither true nor false");
    }
    return found->get<bool>();
}

} // namespace

void serveToggles(const AgentConfig& config, const std::string& configFile) {
    const auto directory = std::filesystem::path(configFile).parent_path();
    Ovix::ToggleService::instance().sourceIs(
        [toggles = config.toggles, directory](std::string_view file, std::string_view toggle,
                                              bool byDefault) {
            const auto configured = toggles.find(std::string(file));
            if (configured != toggles.end()) {
                const auto state = configured->second.find(std::string(toggle));
                if (state != configured->second.end()) {
                    return state->second;
                }
            }
            return toggleInFile(directory / file, std::string(toggle)).value_or(byDefault);
        });
}

Tessel::Result<void> checkToggles(const AgentConfig& config, const std::string& configFile) {
    const auto& known = Ovix::ToggleService::instance().known();
    const auto names = [](const auto& map) {
        std::vector<std::string_view> all;
        for (const auto& entry : map) {
            all.emplace_back(entry.first);
        }
        return all;
    };
    for (const auto& [file, toggles] : config.toggles) {
        const auto toggleFile = known.find(file);
        if (toggleFile == known.end()) {
            return Tessel::Refused{fmt::format("{}: toggles: unknown toggle file {}{}", configFile,
                                               inQuotes(file), suggestion(file, names(known)))};
        }
        for (const auto& [toggle, state] : toggles) {
            const auto& inFile = toggleFile->second;
            if (!inFile.contains(toggle)) {
                return Tessel::Refused{fmt::format(
                    "{}: toggles.{}: unknown toggle {}{}", configFile, file, inQuotes(toggle),
                    suggestion(toggle,
                               std::vector<std::string_view>(inFile.begin(), inFile.end())))};
            }
        }
    }
    return {};
}

} // namespace OvixAgent
