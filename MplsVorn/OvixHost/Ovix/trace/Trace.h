#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "Tessel/Changes.h"
#include "Tessel/Ptr.h"

namespace Ovix {

/// A trace line under construction: fixed room, no heap; what does not fit is cut.
class TraceLine {
  public:
    static constexpr std::size_t capacity = 480;

    TraceLine& operator<<(std::string_view text) noexcept;
    TraceLine& operator<<(const char* text) noexcept { return *this << std::string_view(text); }
    template <std::integral T>
    TraceLine& operator<<(T number) noexcept {
        std::array<char, 24> digits;
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
        return *this << std::string_view(digits.data(),
                                         static_cast<std::size_t>(end - digits.data()));
    }

    std::string_view view() const noexcept { return {text_.data(), size_}; }

  private:
    std::array<char, capacity> text_;
    std::size_t size_ = 0;
};

/// The agent's compact trace ring: the latest records, each its source's tag and the formatted
/// arguments. Written by the packet thread, read on request.
class TraceRing {
  public:
    struct Record {
        std::string_view tag;
        unsigned level = 0;
        TraceLine line;
    };

    /// A ring of no records keeps nothing.
    explicit TraceRing(std::size_t records) : records_(records) {}

    void write(std::string_view tag, unsigned level, const TraceLine& line) noexcept;

    /// Visits the records kept, oldest first.
    void visit(const std::function<void(const Record&)>& visitor) const;

  private:
    std::vector<Record> records_;
    std::uint64_t written_ = 0;
};

/// One source of trace messages, with two destinations that are switched on apart: the compact ring
/// (under the source's tag) and the text trace (under the handle's name). A destination takes the
/// messages whose level is at most its own; both are off (-1) until switched on.
class TraceSource {
  public:
    static constexpr int off = -1;

    /// The source of that name, created on first use and kept for the life of the process.
    static TraceSource& named(std::string_view ringTag, std::string_view textName);

    const std::string& ringTag() const noexcept { return ringTag_; }
    const std::string& textName() const noexcept { return textName_; }
    int ringLevel() const noexcept { return ringLevel_; }
    int textLevel() const noexcept { return textLevel_; }
    void ringLevelIs(int level) noexcept { switchOn(ringLevel_, level); }
    void textLevelIs(int level) noexcept { switchOn(textLevel_, level); }

    /// Whether any source has ever been switched on: all that a frame asks for while none has.
    static bool anyEverOn() noexcept { return anyEverOn_; }
    /// Whether any source is on now.
    static bool anyOn() noexcept { return sourcesOn_ > 0; }

    bool enabled(unsigned level) const noexcept {
        return static_cast<int>(level) <= ringLevel_ || static_cast<int>(level) <= textLevel_;
    }

    /// Formats the arguments only if a destination wants the level.
    template <typename... Args>
    void trace(unsigned level, const Args&... args) {
        if (enabled(level)) [[unlikely]] {
            TraceLine line;
            (line << ... << args);
            write(level, line);
        }
    }

    void write(unsigned level, const TraceLine& line);

    TraceSource(std::string_view ringTag, std::string_view textName)
        : ringTag_(ringTag), textName_(textName) {}
    TraceSource(const TraceSource&) = delete;
    TraceSource& operator=(const TraceSource&) = delete;
    ~TraceSource() = default;

  private:
    bool isOn() const noexcept { return ringLevel_ > off || textLevel_ > off; }
    void switchOn(int& destination, int level) noexcept {
        sourcesOn_ -= isOn() ? 1U : 0U;
        destination = level;
        sourcesOn_ += isOn() ? 1U : 0U;
        anyEverOn_ = anyEverOn_ || level > off;
        Tessel::Changes::notice();
    }

    static bool anyEverOn_;
    static std::uint32_t sourcesOn_;

    std::string ringTag_;
    std::string textName_;
    int ringLevel_ = off;
    int textLevel_ = off;
};

/// The process-wide destinations.
class TraceOutput {
  public:
    /// Receives a text-trace line: the handle's name, the level, and the message.
    using TextSink = std::function<void(std::string_view, unsigned, std::string_view)>;

    static TraceOutput& instance();

    TraceRing& ring() noexcept { return ring_; }
    /// The default writes "name: message" to standard error; an empty one discards the text.
    void textSinkIs(TextSink sink) { sink_ = std::move(sink); }
    const TextSink& textSink() const noexcept { return sink_; }

    /// Switches the text trace of every source, present and future.
    void textLevelOfAllIs(int level);
    int defaultTextLevel() const noexcept { return defaultTextLevel_; }

  private:
    TraceOutput();

    static constexpr std::size_t ringRecords = 1024;

    TraceRing ring_{ringRecords};
    TextSink sink_;
    int defaultTextLevel_ = TraceSource::off;
};

} // namespace Ovix
