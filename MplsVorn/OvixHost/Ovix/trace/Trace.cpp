#include "Ovix/trace/Trace.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>

namespace Ovix {

namespace {

struct Sources {
    std::mutex mutex;
    std::deque<TraceSource> all; // a deque, so that references stay good
};

Sources& sources() {
    static Sources all;
    return all;
}

} // namespace

TraceLine& TraceLine::operator<<(std::string_view text) noexcept {
    const std::size_t fitting = std::min(text.size(), capacity - size_);
    std::memcpy(text_.data() + size_, text.data(), fitting);
    size_ += fitting;
    return *this;
}

void TraceRing::write(std::string_view tag, unsigned level, const TraceLine& line) noexcept {
    if (records_.empty()) {
        return;
    }
    Record& record = records_[written_ % records_.size()];
    record.tag = tag;
    record.level = level;
    record.line = line;
    ++written_;
}

void TraceRing::visit(const std::function<void(const Record&)>& visitor) const {
    const std::uint64_t kept = std::min<std::uint64_t>(written_, records_.size());
    for (std::uint64_t i = written_ - kept; i < written_; ++i) {
        visitor(records_[i % records_.size()]);
    }
}

bool TraceSource::anyEverOn_ = false;
std::uint32_t TraceSource::sourcesOn_ = 0;

TraceSource& TraceSource::named(std::string_view ringTag, std::string_view textName) {
    Sources& known = sources();
    const std::lock_guard lock(known.mutex);
    const auto found = std::find_if(known.all.begin(), known.all.end(), [&](const auto& source) {
        return source.textName() == textName && source.ringTag() == ringTag;
    });
    if (found != known.all.end()) {
        return *found;
    }
    TraceSource& added = known.all.emplace_back(ringTag, textName);
    added.textLevelIs(TraceOutput::instance().defaultTextLevel());
    return added;
}

void TraceSource::write(unsigned level, const TraceLine& line) {
    TraceOutput& output = TraceOutput::instance();
    if (static_cast<int>(level) <= ringLevel_) {
        output.ring().write(ringTag_, level, line);
    }
    if (static_cast<int>(level) <= textLevel_ && output.textSink()) {
        output.textSink()(textName_, level, line.view());
    }
}

TraceOutput& TraceOutput::instance() {
    static TraceOutput output;
    return output;
}

TraceOutput::TraceOutput()
    : sink_([](std::string_view name, unsigned, std::string_view message) {
          std::fprintf(stderr, "%.*s: %.*s\n", static_cast<int>(name.size()), name.data(),
                       static_cast<int>(message.size()), message.data());
      }) {}

void TraceOutput::textLevelOfAllIs(int level) {
    Sources& known = sources();
    const std::lock_guard lock(known.mutex);
    defaultTextLevel_ = level;
    for (TraceSource& source : known.all) {
        source.textLevelIs(level);
    }
}

} // namespace Ovix
