#include <algorithm>
#include <benchmark/benchmark.h>
#include <random>

#include "State/Fib.h"
#include "TableBench.h"

namespace Bench {

namespace {

using OvixAgent::Fib;
using OvixAgent::IpRoute;

constexpr std::size_t destinations = 1U << 16U;

/// Prefix lengths as often as in the Internet's routing table: of IPv4 mostly /24 and the lengths
/// above it, of IPv6 mostly /48, /32 and /44; the prefixes lie in a part of the address space.
class InternetPrefixes {
  public:
    explicit InternetPrefixes(Lumo::IpFamily family) : family_(family) {}

    Lumo::IpGenPrefix next() { return Lumo::IpGenPrefix::of(address(), length()); }

    /// An address in the prefix.
    Lumo::IpGenAddr within(const Lumo::IpGenPrefix& prefix) {
        std::array<std::uint8_t, Lumo::IpGenAddr::ipv6Size> bytes = prefix.address().bytes();
        for (std::size_t bit = prefix.length(); bit < prefix.address().bits(); ++bit) {
            bytes[bit / 8] |= static_cast<std::uint8_t>((random_() & 1U) << (7 - bit % 8));
        }
        return made(bytes);
    }

  private:
    Lumo::IpGenAddr made(const std::array<std::uint8_t, Lumo::IpGenAddr::ipv6Size>& bytes) const {
        return family_ == Lumo::IpFamily::ipv4 ? Lumo::IpGenAddr::ipv4(bytes.data())
                                               : Lumo::IpGenAddr::ipv6(bytes.data());
    }
    // Of 38,000 blocks of addresses, as many as have longer IPv4 prefixes in the Internet's table.
    Lumo::IpGenAddr address() {
        constexpr std::uint32_t blocks = 38'000;
        std::array<std::uint8_t, Lumo::IpGenAddr::ipv6Size> bytes{};
        std::generate(bytes.begin(), bytes.end(),
                      [this] { return static_cast<std::uint8_t>(random_()); });
        const auto block = static_cast<std::uint32_t>(random_() % blocks) * 2'654'435'761U;
        bytes[0] = static_cast<std::uint8_t>(1 + (block >> 24U) % 222);
        bytes[1] = static_cast<std::uint8_t>(block >> 16U);
        if (family_ == Lumo::IpFamily::ipv6) {
            std::copy_n(bytes.begin(), 2, bytes.begin() + 1);
            bytes[0] = static_cast<std::uint8_t>(0x20 + block % 16);
        }
        return made(bytes);
    }
    std::uint8_t length() {
        return static_cast<std::uint8_t>(family_ == Lumo::IpFamily::ipv4
                                             ? 8 + ipv4Lengths_(random_)
                                             : 20 + ipv6Lengths_(random_));
    }

    Lumo::IpFamily family_;
    std::mt19937 random_{1};
    std::discrete_distribution<int> ipv4Lengths_{
        2,    2,     4,     10,    30,  60,  120, 200, 1400, 900, 1500, 2500, 4300,
        4500, 12000, 10000, 59000, 100, 100, 100, 100, 100,  100, 50,   200};
    std::discrete_distribution<int> ipv6Lengths_{
        10,  20,   20,  20,  100, 30,   100, 30,  400, 1800,  200, 30,  15000, 300,  400,
        300, 4000, 200, 400, 200, 8000, 100, 300, 200, 11000, 100, 300, 200,   47000};
};

void lookup(benchmark::State& state, Lumo::IpFamily family) {
    const auto routes = static_cast<std::uint32_t>(state.range(0));
    InternetPrefixes prefixes(family);
    std::mt19937 random(2);
    Fib fib;
    std::vector<Lumo::IpGenPrefix> held;
    while (held.size() < routes) {
        const Lumo::IpGenPrefix prefix = prefixes.next();
        if (fib.insert(prefix, IpRoute::drop())) {
            held.push_back(prefix);
        }
    }
    std::vector<Lumo::IpGenAddr> asked;
    for (std::size_t i = 0; i < destinations; ++i) {
        asked.push_back(prefixes.within(held[random() % held.size()]));
    }
    for (auto _ : state) {
        for (const Lumo::IpGenAddr& address : asked) {
            benchmark::DoNotOptimize(fib.find(address));
        }
    }
    state.counters["time/lookup"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * destinations,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["bytes/route"] = static_cast<double>(fib.lookupMemory()) / routes;
}

} // namespace

void registerFibBenchmarks(std::int64_t routes) {
    benchmark::RegisterBenchmark("lookup/ipv4", [](benchmark::State& state) {
        lookup(state, Lumo::IpFamily::ipv4);
    })->Arg(routes);
    benchmark::RegisterBenchmark("lookup/ipv6", [](benchmark::State& state) {
        lookup(state, Lumo::IpFamily::ipv6);
    })->Arg(routes);
}

} // namespace Bench
