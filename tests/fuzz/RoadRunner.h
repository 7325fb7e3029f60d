#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RoadInput.h"
#include "Router.h"

namespace Fuzz {

/// The frames that are received again as answers, step by step.
using Answers = std::vector<std::vector<Differential::ScriptFrame>>;

/// What came of an input: a digest of each step and of its answers' being received; and in words,
/// when they were asked for.
struct Outcome {
    std::vector<std::uint64_t> digests;
    std::vector<std::string> lines;
};

/// How long a router is kept. What inputs change is undone by a new one, which costs as much as a
/// hundred frames.
enum class Keeping : std::uint8_t {
    inputByInput, ///< every input meets its own world, unchanged
    forLong,      ///< many inputs one after the other meet what the ones before have left
};

/// Has inputs received by one road.
class RoadRunner {
  public:
    RoadRunner(Differential::Road road, Keeping keeping) : road_(road), keeping_(keeping) {}

    /// Receives the steps of an input, and after each the answers: those given, or, where they are
    /// unset, those that the router makes, which `made` gets. At the end the counters are looked
    /// at. Ends the process when the balance is wrong.
    Outcome run(Bytes input, const Answers* given, Answers* made, bool keepsLines);

    /// The next input meets a new router.
    void forget() { router_.reset(); }

    /// The world of the router that there is.
    unsigned world() const noexcept { return world_; }
    /// All that the router has received is written there, as one input, before it is received: to
    /// be run again when it takes more than the last input to come to what is found.
    void historyIs(std::FILE* file) noexcept { history_ = file; }
    /// How many frames were received so far, answers among them.
    std::uint64_t frames() const noexcept { return frames_; }

  private:
    bool mayKeep(unsigned world) const noexcept;
    void prepare(unsigned world);
    void note(Bytes input, bool isFirst);
    void perform(const Differential::Step& step, Outcome& outcome, bool keepsLines,
                 bool looksAtCounters = false);
    void finish(Outcome& outcome, bool keepsLines);

    Differential::Road road_;
    Keeping keeping_;
    unsigned world_ = 0;
    std::optional<Differential::Start> start_;
    std::unique_ptr<Differential::Router> router_;
    std::FILE* history_ = nullptr;
    std::uint64_t frames_ = 0;
    unsigned inputs_ = 0; ///< that this router has received
    bool isChanged_ = false;
};

} // namespace Fuzz
