#include "Metrics/RouteCensus.h"

#include <exception>
#include <utility>

#include "Posix/WithoutSignals.h"
#include "Tables/TableLoading.h"
#include "Tessel/Exceptions.h"
#include "Tessel/Words.h"

namespace OvixAgent {

using namespace Tessel::TableLayout;

RouteCensus::RouteCensus(std::string tables) : name_(std::move(tables)) {
    if (!name_.empty()) {
        const Posix::WithoutSignals here;
        thread_ = std::thread([this] { run(); });
    }
}

RouteCensus::~RouteCensus() {
    {
        const std::lock_guard lock(mutex_);
        isStopped_ = true;
    }
    stops_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

std::vector<OwnedRoutes> RouteCensus::counts() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

void RouteCensus::run() {
    std::unique_lock lock(mutex_);
    while (!isStopped_) {
        lock.unlock();
        try {
            count();
        } catch (const std::exception&) {
            reader_ = nullptr; // damaged, removed or changed meanwhile: looked for again
        }
        lock.lock();
        stops_.wait_for(lock, every, [this] { return isStopped_; });
    }
    reader_ = nullptr; // by the thread that made it
}

void RouteCensus::count() {
    // The name may lead to other tables than before.
    auto opened = openSharedTables(name_, false);
    if (!opened) {
        return;
    }
    if (!reader_ || opened.value()->identity() != identity_) {
        pages_ = {};
        identity_ = opened.value()->identity();
    } else if (opened.value()->generation() == reader_->generation()) {
        return;
    }
    reader_ = std::move(opened).value();
    const Mpls::PublishedTables tables(reader_);
    std::vector<OwnedRoutes> all;
    for (std::size_t table = 0; table < Mpls::lfibs; ++table) {
        countTable(tables, table);
        Counts sum;
        for (const Page& page : pages_[table]) {
            for (const auto& [owner, routes] : page.counts) {
                sum[owner] += routes;
            }
        }
        for (const auto& [owner, routes] : sum) {
            const auto word = Tessel::wordOf(static_cast<Mpls::RouteOwner>(owner));
            all.push_back({std::string(Tessel::wordOf(static_cast<Mpls::TableId>(table))),
                           word.empty() ? std::to_string(owner) : std::string(word), routes});
        }
    }
    const std::lock_guard lock(mutex_);
    counts_ = std::move(all);
}

void RouteCensus::countTable(const Mpls::PublishedTables& tables, std::size_t table) {
    pages_[table].resize(directoryPages);
    for (std::size_t page = 0; page < directoryPages; ++page) {
        Page& known = pages_[table][page];
        const std::uint64_t madeIn = tables.tables().pageMadeIn(table, page);
        if (madeIn != known.madeIn) {
            known = {madeIn, madeIn == 0 ? Counts() : countedPage(tables, table, page)};
        }
    }
}

RouteCensus::Counts RouteCensus::countedPage(const Mpls::PublishedTables& tables, std::size_t table,
                                             std::size_t page) {
    Counts counts;
    const Mpls::LfibStatus& lfib = *tables.lfib(static_cast<Mpls::TableId>(table));
    const auto first = static_cast<std::uint32_t>(page * pageEntries);
    for (std::uint32_t label = first; label < first + pageEntries; ++label) {
        const Mpls::LfibRoute route = lfib.route(Mpls::RouteKey::fromLabel(Lumo::MplsLabel(label)));
        if (route.viaSetKey == Mpls::LfibViaSetKey()) {
            continue;
        }
        try {
            ++counts[lfib.viaSet(route.viaSetKey).owner];
        } catch (const Tessel::CorruptionDetected&) {
            // Nobody's.
        }
    }
    return counts;
}

} // namespace OvixAgent
