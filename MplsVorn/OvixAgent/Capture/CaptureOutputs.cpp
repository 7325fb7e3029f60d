#include "Capture/CaptureOutputs.h"

#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <span>
#include <sys/stat.h>
#include <utility>

#include "State/Frame.h"

namespace OvixAgent {

namespace {

/// Device and inode: the same for every path to a file, through symbolic and hard links alike.
using FileIdentity = std::pair<dev_t, ino_t>;

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileIdentity(status.st_dev, status.st_ino);
}

void refuseToOverwrite(std::span<const std::string> inputs, std::span<const std::string> outputs) {
    std::map<FileIdentity, std::string> inputFiles;
    for (const std::string& input : inputs) {
        if (const auto identity = identityOf(input)) {
            inputFiles.emplace(*identity, input);
        }
    }
    for (const std::string& output : outputs) {
        const auto identity = identityOf(output);
        const auto found = identity ? inputFiles.find(*identity) : inputFiles.end();
        if (found != inputFiles.end()) {
            throw CaptureError(
                fmt::format("{}: would be overwritten by the output {}", found->second, output));
        }
    }
}

std::vector<std::string> pathsIn(const std::string& directory, const AgentConfig& config) {
    std::vector<std::string> paths;
    const auto add = [&](const std::string& name) {
        paths.push_back((std::filesystem::path(directory) / (name + ".pcap")).string());
    };
    for (const PortConfig& port : config.ports) {
        if (!port.isSubInterface()) {
            add(port.name);
        }
    }
    add("cpu");
    add("lo");
    return paths;
}

} // namespace

CaptureOutputs::CaptureOutputs(const std::string& directory, const std::vector<std::string>& inputs,
                               const AgentConfig& config, TimePrecision precision) {
    const std::vector<std::string> paths = pathsIn(directory, config);
    refuseToOverwrite(inputs, paths);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw CaptureError(fmt::format("{}: cannot be created: {}", directory, error.message()));
    }
    for (const std::string& path : paths) {
        writers_.push_back(std::make_unique<CaptureWriter>(path, precision));
    }
    std::size_t next = 0;
    for (const PortConfig& port : config.ports) {
        ofPort_.push_back(port.isSubInterface() ? nullptr : writers_[next++].get());
    }
    for (std::size_t i = 0; i < ofPort_.size(); ++i) {
        ofPort_[i] = ofPort_[i] != nullptr ? ofPort_[i] : ofPort_[config.ports[i].parent];
    }
}

void CaptureOutputs::close() {
    std::exception_ptr firstError;
    for (const auto& writer : writers_) {
        try {
            writer->close();
        } catch (const CaptureError&) {
            firstError = firstError ? firstError : std::current_exception();
        }
    }
    if (firstError) {
        std::rethrow_exception(firstError);
    }
}

} // namespace OvixAgent
