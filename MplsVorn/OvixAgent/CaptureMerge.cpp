#include "CaptureMerge.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace OvixAgent {

namespace {

constexpr auto isLater = [](const auto& a, const auto& b) {
    return std::tie(a.time, a.reader) > std::tie(b.time, b.reader);
};

} // namespace

CaptureMerge::CaptureMerge(std::vector<CaptureReader> readers)
    : readers_(std::move(readers)), lastReader_(readers_.size()) {
    heads_.reserve(readers_.size());
    for (std::size_t i = 0; i < readers_.size(); ++i) {
        pull(i);
    }
}

void CaptureMerge::pull(std::size_t reader) {
    if (const Frame* frame = readers_[reader].next(); frame != nullptr) {
        heads_.push_back({frame->time, reader, frame});
        std::push_heap(heads_.begin(), heads_.end(), isLater);
    }
}

const Frame* CaptureMerge::next() {
    // Not before now: reading on invalidates the frame that was handed out last.
    if (lastReader_ < readers_.size()) {
        pull(lastReader_);
    }
    if (heads_.empty()) {
        lastReader_ = readers_.size();
        return nullptr;
    }
    std::pop_heap(heads_.begin(), heads_.end(), isLater);
    const Head head = heads_.back();
    heads_.pop_back();
    lastReader_ = head.reader;
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
