#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <memory>

#include "BusyWriter.h"
#include "Published/PublishedTables.h"
#include "Router.h"
#include "Scenarios.h"
#include "TableBench.h"
#include "TableSamples.h"
#include "Tables/TableLoading.h"
#include "Tessel/Exceptions.h"

namespace Bench {

namespace {

using Mpls::TableId;

constexpr std::uint32_t million = 1'000'000;
constexpr std::uint32_t readRoutes = 100'000;
constexpr std::uint32_t batchRoutes = 1'000;

/// A million routes into new shared tables, visible at once.
void load(benchmark::State& state) {
    const std::string name = benchTables("load");
    std::size_t bytes = 0;
    for (auto _ : state) {
        {
            Mpls::TablePublisher tables(Tessel::TableMemory::sharedForWriting(name));
            const std::size_t empty = tables.tables().usedBytes();
            writeLfib(tables.lfib(TableId::transitLfib), million);
            tables.commit();
            bytes = tables.tables().usedBytes() - empty;
        }
        state.PauseTiming();
        Tessel::TableMemory::remove(name);
        state.ResumeTiming();
    }
    state.counters["routes/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * million, benchmark::Counter::kIsRate);
    state.counters["bytes/route"] = static_cast<double>(bytes) / million;
}

/// Batches of so many changes of a table of 100,000 routes.
void change(benchmark::State& state) {
    const auto perBatch = static_cast<std::uint32_t>(state.range(0));
    const std::string name = benchTables("change");
    {
        Mpls::TablePublisher tables(Tessel::TableMemory::sharedForWriting(name));
        writeLfib(tables.lfib(TableId::transitLfib), readRoutes);
        tables.commit();
        std::uint32_t outLabel = 300;
        for (auto _ : state) {
            writeLfib(tables.lfib(TableId::transitLfib), perBatch, ++outLabel % 1000);
            tables.commit();
        }
    }
    Tessel::TableMemory::remove(name);
    state.counters["routes/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * perBatch, benchmark::Counter::kIsRate);
}

void fillTransit(Mpls::TablePublisher& tables) {
    writeLfib(tables.lfib(TableId::transitLfib), readRoutes);
}
void changeSome(Mpls::TablePublisher& tables, std::uint32_t batch) {
    writeLfib(tables.lfib(TableId::transitLfib), batchRoutes, batch % 1000);
}
void changeAll(Mpls::TablePublisher& tables, std::uint32_t batch) {
    writeLfib(tables.lfib(TableId::transitLfib), readRoutes, batch % 1000);
}

/// A reader of one set of tables, as the agent reads: the newest generation for every frame.
class Reader {
  public:
    explicit Reader(const BusyWriter& writer) : tables_(writer.reader()) {}
    void read() {
        for (;;) {
            tables_.refresh();
            try {
                readLfib(*tables_.lfib(TableId::transitLfib), labels_.next());
                return;
            } catch (const Tessel::SnapshotLost&) {
                ++lost_;
            }
        }
    }
    std::uint64_t lost() const noexcept { return lost_; }
    std::uint64_t generation() const noexcept { return tables_.tables().generation(); }

  private:
    Mpls::PublishedTables tables_;
    RandomLabels labels_{readRoutes};
    std::uint64_t lost_ = 0;
};

/// Reads from two sets of tables in turn, of which none, one or both have a busy writer.
void readBesideWriters(benchmark::State& state) {
    const auto busy = state.range(0);
    const BusyWriter first(benchTables("first"), fillTransit,
                           busy > 0 ? changeSome : BusyWriter::Change());
    const BusyWriter second(benchTables("second"), fillTransit,
                            busy > 1 ? changeSome : BusyWriter::Change());
    Reader one(first);
    Reader two(second);
    const std::uint64_t generations = one.generation() + two.generation();
    constexpr std::size_t perIteration = 256;
    for (auto _ : state) {
        for (std::size_t i = 0; i < perIteration; i += 2) {
            one.read();
            two.read();
        }
    }
    state.counters["reads/s"] = benchmark::Counter(
        static_cast<double>(state.iterations()) * perIteration, benchmark::Counter::kIsRate);
    state.counters["generations"] =
        static_cast<double>(one.generation() + two.generation() - generations);
    state.counters["lost"] = static_cast<double>(one.lost() + two.lost());
}

/// The longest of many reads, each timed, while a writer replaces 100,000 routes at a time. What
/// the scheduler takes the processor away for is in it; the read that one in 10,000 exceeds is
/// told, too.
void longestRead(benchmark::State& state) {
    using Clock = std::chrono::steady_clock;
    const BusyWriter writer(benchTables("longest"), fillTransit,
                            state.range(0) > 0 ? changeAll : BusyWriter::Change());
    Reader reader(writer);
    std::vector<double> microseconds;
    microseconds.reserve(std::size_t{1} << 22U);
    for (auto _ : state) {
        const auto start = Clock::now();
        reader.read();
        const auto took = Clock::now() - start;
        if (microseconds.size() < microseconds.capacity()) {
            microseconds.push_back(std::chrono::duration<double, std::micro>(took).count());
        }
    }
    std::sort(microseconds.begin(), microseconds.end());
    state.counters["longest_us"] = microseconds.back();
    state.counters["p99.99_us"] = microseconds[microseconds.size() * 9999 / 10000];
    state.counters["lost"] = static_cast<double>(reader.lost());
}

/// The whole road of a swap by shared tables of 1,000 hardware routes, without and with a writer
/// that changes a batch of other routes again and again.
void forwardBesideWriter(benchmark::State& state) {
    Scenario scenario = makeScenario("swap", 1000);
    const auto fill = [&](Mpls::TablePublisher& tables) {
        assert(OvixAgent::loadTables(scenario.config, "bench", tables));
    };
    const BusyWriter writer(benchTables("forward"), fill,
                            state.range(0) > 0 ? changeSome : BusyWriter::Change());
    Router router(scenario.config, writer.reader());
    std::size_t next = 0;
    const std::uint64_t generation = router.tables().tables().generation();
    for (auto _ : state) {
        OvixAgent::Frame frame;
        frame.bytes = scenario.frames[next++ % scenario.frames.size()];
        frame.originalLength = static_cast<std::uint32_t>(frame.bytes.size());
        router.tables().refresh();
        router.forwarder().receive(frame);
    }
    state.counters["frames/s"] =
        benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.counters["generations"] =
        static_cast<double>(router.tables().tables().generation() - generation);
}

} // namespace

void registerSharedTableBenchmarks() {
    benchmark::RegisterBenchmark("tables/load_a_million", load)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3)
        ->UseRealTime();
    benchmark::RegisterBenchmark("tables/change", change)
        ->Arg(1)
        ->Arg(1000)
        ->Arg(100000)
        ->UseRealTime();
    benchmark::RegisterBenchmark("tables/read/busy_writers", readBesideWriters)
        ->DenseRange(0, 2)
        ->UseRealTime();
    benchmark::RegisterBenchmark("tables/longest_read/busy_writers", longestRead)
        ->DenseRange(0, 1)
        ->UseRealTime();
    benchmark::RegisterBenchmark("tables/forward/busy_writers", forwardBesideWriter)
        ->DenseRange(0, 1)
        ->UseRealTime();
}

} // namespace Bench
