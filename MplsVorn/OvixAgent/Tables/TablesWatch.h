#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "Published/PublishedTables.h"

namespace OvixAgent {

/// Keeps a run at the shared tables that their name leads to. When their file has been removed or
/// cut short, forwarding goes on by what has been read of it; once there are whole tables of that
/// name, they take the place of the former ones. Used by the thread that reads the tables.
class TablesWatch {
  public:
    using Clock = std::chrono::steady_clock;
    using News = std::vector<std::string>;

    static constexpr std::chrono::milliseconds every{250};

    /// The tables must outlive it, and be those of a file.
    explicit TablesWatch(Mpls::PublishedTables& tables) : tables_(&tables) {}

    /// To be called between bursts; does nothing when it has looked a moment ago. Returns what is
    /// to be logged: what has become of the file, and damage met since the last time.
    News look(Clock::time_point now = Clock::now());

    /// What is wrong with the file; empty when all is well.
    const std::string& problem() const noexcept { return problem_; }

  private:
    void problemIs(std::string problem, News& news);
    void goOver(News& news);
    void reportDamage(News& news);

    Mpls::PublishedTables* tables_;
    Clock::time_point next_{};
    std::string problem_;
    std::uint64_t corruptions_ = 0; ///< reported
};

} // namespace OvixAgent
