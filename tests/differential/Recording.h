#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "State/Frame.h"
#include "Tessel/Words.h"

namespace Differential {

/// What is falsified on the fast road, to see that the comparison notices.
enum class Fault : std::uint8_t { none, byte, time, label, reason };

/// What is compared of two roads, in one number; in words, too, when they are asked for.
class Recording {
  public:
    explicit Recording(bool keepsLines = false) noexcept : keepsLines_(keepsLines) {}

    void add(std::string_view name, std::uint64_t number);
    void add(std::string_view name, std::string_view text);
    void add(std::string_view name, std::span<const std::uint8_t> bytes);
    void add(std::string_view port, const OvixAgent::Frame& frame);
    /// Appends what the other has, and empties it.
    void take(Recording& other);

    std::uint64_t digest() const noexcept { return digest_; }
    const std::vector<std::string>& lines() const noexcept { return lines_; }

  private:
    void mix(std::uint64_t number) noexcept {
        digest_ = (digest_ ^ number) * 0x9fb21c651e98df25U;
        digest_ ^= digest_ >> 32U;
    }
    void mix(std::span<const std::uint8_t> bytes) noexcept;

    bool keepsLines_;
    std::uint64_t digest_ = 0;
    std::vector<std::string> lines_;
};

/// A port that records what it is given.
class RecordingPort : public OvixAgent::TransmitPort {
  public:
    RecordingPort(std::string name, Fault fault) : name_(std::move(name)), fault_(fault) {}

    void transmit(const OvixAgent::Frame& frame) override;

    Recording& recording() noexcept { return recording_; }
    std::uint64_t frames() const noexcept { return frames_; }

  private:
    std::string name_;
    Fault fault_;
    Recording recording_;
    std::uint64_t frames_ = 0;
};

} // namespace Differential

template <>
inline constexpr auto
    Tessel::words<Differential::Fault> = std::to_array<Tessel::Word<Differential::Fault>>({
        {"byte", Differential::Fault::byte},
        {"time", Differential::Fault::time},
        {"label", Differential::Fault::label},
        {"reason", Differential::Fault::reason},
    });
