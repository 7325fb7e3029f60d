#include "TableBench.h"

#include <benchmark/benchmark.h>
#include <memory>

#include "Published/PublishedTables.h"
#include "Published/TablePublisher.h"
#include "TableSamples.h"

namespace Bench {

namespace {

constexpr std::size_t batch = 256;

/// So many routes in the transit LFIB or in the hardware status, with both sides in this process.
struct Filled {
    Filled(std::uint32_t routes, bool hardware)
        : publisher(Tessel::TableMemory::ofProcess()), empty(publisher.tables().usedBytes()) {
        if (hardware) {
            writeHardware(routes);
        } else {
            writeLfib(publisher.lfib(Mpls::TableId::transitLfib), routes);
        }
        publisher.commit();
        published = std::make_unique<Mpls::PublishedTables>(
            Tessel::make<Tessel::TableReader>("bench", publisher.tables().memory()));
    }
    void writeHardware(std::uint32_t routes) {
        const auto adjacency = Mpls::Hardware::Adjacency::create(swapVia(), {}, false);
        for (std::uint32_t i = 0; i < routes; ++i) {
            publisher.hardware().adjacencyIs(i, *adjacency);
            publisher.hardware().routeIs({keyOf(firstLabel + i), i, false});
        }
    }
    double bytesPerRoute(std::uint32_t routes) const {
        return static_cast<double>(publisher.tables().usedBytes() - empty) / routes;
    }

    Mpls::TablePublisher publisher;
    std::size_t empty;
    std::unique_ptr<Mpls::PublishedTables> published;
};

/// A route and the interface of its adjacency's first via.
void readHardware(const Mpls::Hardware::Status& status, Mpls::RouteKey key) {
    const auto adjacency = status.adjacency(status.route(key));
    benchmark::DoNotOptimize(adjacency->entries(false).front().intf);
}

void lookup(benchmark::State& state, bool hardware) {
    const auto routes = static_cast<std::uint32_t>(state.range(0));
    const Filled tables(routes, hardware);
    const Mpls::LfibStatus& lfib = *tables.published->lfib(Mpls::TableId::transitLfib);
    const Mpls::Hardware::Status& status = *tables.published->hardware();
    RandomLabels labels(routes);
    for (auto _ : state) {
        for (std::size_t i = 0; i < batch; ++i) {
            if (hardware) {
                readHardware(status, labels.next());
            } else {
                readLfib(lfib, labels.next());
            }
        }
    }
    state.counters["time/frame"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * batch,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["bytes/route"] = tables.bytesPerRoute(routes);
}

} // namespace

void registerLookupBenchmarks(std::int64_t routes) {
    benchmark::RegisterBenchmark("lookup/hardware", [](benchmark::State& state) {
        lookup(state, true);
    })->Arg(routes);
    benchmark::RegisterBenchmark("lookup/lfib", [](benchmark::State& state) {
        lookup(state, false);
    })->Arg(routes);
}

} // namespace Bench
