#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace OvixAgent {

/// How many frames an agent has dropped for which reason in each of the last intervals. Asks the
/// agent at its control socket, from a thread of its own.
class FateSamples {
  public:
    static constexpr std::chrono::seconds every{2};
    static constexpr std::size_t most = 150; ///< five minutes

    /// `control` is the path of a socket that is served.
    explicit FateSamples(std::string control);
    ~FateSamples();
    FateSamples(const FateSamples&) = delete;
    FateSamples& operator=(const FateSamples&) = delete;

    /// {"seconds", "samples", "reasons": [{"reason", "frames": [COUNT]}]}: the intervals, oldest
    /// first, and those that any frame was dropped in; of the `reasons` that were met most, and the
    /// sum of the others, whose name is null.
    std::string json(std::size_t reasons) const;

    /// Frames dropped since the start by reason, as asked for just now; what was counted before is
    /// forgotten when they have been cleared. For tests, too.
    using Counts = std::map<std::string, std::uint64_t>;
    void add(Counts dropped);

  private:
    void run();

    std::string control_;
    mutable std::mutex mutex_;
    std::condition_variable stops_;
    bool isStopped_ = false;
    bool hasLast_ = false;
    Counts last_;
    std::deque<Counts> growth_; ///< the newest last
    std::thread thread_;        ///< the last member
};

} // namespace OvixAgent
