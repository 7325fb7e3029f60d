#include "Capture/CaptureMerge.h"

#include <algorithm>
#include <cassert>
#include <fmt/format.h>
#include <tuple>
#include <utility>

#include "Config/ConfigText.h"
#include "State/Frame.h"

namespace OvixAgent {

namespace {

constexpr auto isLater = [](const auto& a, const auto& b) {
    return std::tie(a.time, a.reader) > std::tie(b.time, b.reader);
};

PortIndex portOf(const InputOption& input, const std::vector<PortConfig>& ports) {
    const auto found = std::find_if(ports.begin(), ports.end(), [&](const PortConfig& port) {
        return port.name == input.port;
    });
    if (found != ports.end() && found->isSubInterface()) {
        throw CaptureError(fmt::format(
            "--in {}={}: {} is a VLAN sub-interface, whose frames come in "
            "at its parent {}",
            input.port, input.path, inQuotes(input.port), inQuotes(ports[found->parent].name)));
    }
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

CaptureMerge::CaptureMerge(std::vector<CaptureReader> readers) : readers_(std::move(readers)) {
    heads_.reserve(readers_.size());
    for (std::size_t i = readers_.size(); i > 0; --i) {
        toRead_.push_back(i - 1);
    }
}

int CaptureMerge::waitDescriptor() const noexcept {
    return toRead_.empty() ? -1 : readers_[toRead_.back()].waitDescriptor();
}

// Called late, since reading invalidates the frame returned last.
void CaptureMerge::look() {
    assert(!toRead_.empty());
    const std::size_t reader = toRead_.back();
    toRead_.pop_back();
    if (const Frame* frame = readers_[reader].next(); frame != nullptr) {
        heads_.push_back({frame->time, reader, frame});
        std::push_heap(heads_.begin(), heads_.end(), isLater);
    }
}

const Frame* CaptureMerge::next() {
    while (!toRead_.empty()) {
        look();
    }
    if (heads_.empty()) {
        return nullptr;
    }
    std::pop_heap(heads_.begin(), heads_.end(), isLater);
    const Head head = heads_.back();
    heads_.pop_back();
    toRead_.push_back(head.reader);
    return head.frame;
}

bool CaptureMerge::hasMicroseconds() const {
    return std::all_of(readers_.begin(), readers_.end(),
                       [](const CaptureReader& reader) { return reader.hasMicroseconds(); });
}

std::vector<std::string> CaptureMerge::problems() const {
    std::vector<std::string> problems;
    for (const CaptureReader& reader : readers_) {
        if (!reader.problem().empty()) {
            problems.push_back(reader.problem());
        }
    }
    return problems;
}

double CaptureMerge::progress() const {
    double size = 0;
    double read = 0;
    for (const CaptureReader& reader : readers_) {
        size += static_cast<double>(reader.sizeBytes());
        read += reader.sizeBytes() == 0 ? 0.0 : static_cast<double>(reader.readBytes());
    }
    return size > 0 ? std::min(1.0, read / size) : 0.0;
}

} // namespace OvixAgent
