#include "Command/CliInputs.h"

#include <algorithm>
#include <fmt/format.h>

#include "Config/ConfigText.h"
#include "State/CaptureError.h"

namespace OvixAgent {

namespace {

PortIndex portOf(const InputOption& input, const std::vector<PortConfig>& ports) {
    const auto found = std::find_if(ports.begin(), ports.end(), [&](const PortConfig& port) {
        return port.name == input.port;
    });
    if (found != ports.end()) {
        return static_cast<PortIndex>(found - ports.begin());
    }
    std::vector<std::string_view> names;
    names.reserve(ports.size());
    for (const PortConfig& port : ports) {
        names.emplace_back(port.name);
    }
    throw CaptureError(fmt::format("--in {}={}: no port is named {}{}", input.port, input.path,
                                   inQuotes(input.port), suggestion(input.port, names)));
}

} // namespace

std::vector<CaptureReader> openInputs(const std::vector<InputOption>& inputs,
                                      const std::vector<PortConfig>& ports) {
    std::vector<PortIndex> indices;
    indices.reserve(inputs.size());
    for (const InputOption& input : inputs) {
        indices.push_back(portOf(input, ports));
    }
    std::vector<CaptureReader> readers;
    readers.reserve(inputs.size());
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        readers.emplace_back(indices[i], inputs[i].path);
    }
    return readers;
}

} // namespace OvixAgent
