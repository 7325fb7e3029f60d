#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Metrics/AgentMetrics.h"
#include "Mpls/TableDirectory.h"
#include "Published/PublishedTables.h"

namespace OvixAgent {

/// Counts the label routes of shared tables by owner, in a thread of its own that reads the tables
/// as any other reader does: nobody waits for a million of them to be counted. Of a new generation
/// only the pages are counted that are not those of the one before.
class RouteCensus {
  public:
    static constexpr std::chrono::seconds every{1};

    /// The name of the tables; empty: there is nothing to be counted.
    explicit RouteCensus(std::string tables);
    ~RouteCensus();
    RouteCensus(const RouteCensus&) = delete;
    RouteCensus& operator=(const RouteCensus&) = delete;

    /// As of a second ago, or somewhat more.
    std::vector<OwnedRoutes> counts() const;

  private:
    /// By owner's number.
    using Counts = std::map<std::uint8_t, std::uint64_t>;
    struct Page {
        std::uint64_t madeIn = 0; ///< the generation
        Counts counts;
    };
    using Pages = std::vector<Page>;

    void run();
    void count();
    void countTable(const Mpls::PublishedTables& tables, std::size_t table);
    static Counts countedPage(const Mpls::PublishedTables& tables, std::size_t table,
                              std::size_t page);

    std::string name_;
    Ptr<Tessel::TableReader> reader_; ///< of the thread, as all up to the mutex
    std::uint64_t identity_ = 0;
    std::array<Pages, Mpls::lfibs> pages_;
    mutable std::mutex mutex_;
    std::condition_variable stops_;
    bool isStopped_ = false;
    std::vector<OwnedRoutes> counts_;
    std::thread thread_; ///< the last member
};

} // namespace OvixAgent
