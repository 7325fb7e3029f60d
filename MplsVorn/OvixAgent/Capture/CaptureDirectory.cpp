#include "Capture/CaptureDirectory.h"

#include <exception>
#include <filesystem>
#include <fmt/format.h>
#include <map>
#include <optional>
#include <sys/stat.h>
#include <utility>

#include "State/CaptureError.h"

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

} // namespace

CaptureDirectory::CaptureDirectory(const std::string& directory, std::span<const std::string> names,
                                   std::span<const std::string> inputs, TimePrecision precision) {
    std::vector<std::string> paths;
    for (const std::string& name : names) {
        paths.push_back((std::filesystem::path(directory) / (name + ".pcap")).string());
    }
    refuseToOverwrite(inputs, paths);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw CaptureError(fmt::format("{}: cannot be created: {}", directory, error.message()));
    }
    writers_.reserve(paths.size());
    for (std::string& path : paths) {
        writers_.emplace_back(std::move(path), precision);
    }
}

void CaptureDirectory::close() {
    std::exception_ptr firstError;
    for (CaptureWriter& writer : writers_) {
        try {
            writer.close();
        } catch (const CaptureError&) {
            firstError = firstError ? firstError : std::current_exception();
        }
    }
    if (firstError) {
        std::rethrow_exception(firstError);
    }
}

} // namespace OvixAgent
