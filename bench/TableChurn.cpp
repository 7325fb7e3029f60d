#include "TableChurn.h"

#include <chrono>
#include <cstdio>
#include <random>
#include <stdexcept>
#include <vector>

#include "BusyWriter.h"
#include "FrameRing.h"
#include "Mpls/Hardware/Adjacency.h"
#include "Router.h"
#include "Tables/TableLoading.h"

namespace Bench {

namespace {

using std::chrono::nanoseconds;
using namespace std::chrono_literals;

constexpr nanoseconds betweenGenerations = 10ms;
constexpr std::uint32_t labelsPerGeneration = 1000;

/// A router whose tables somebody else changes.
class Churn {
  public:
    explicit Churn(std::uint32_t labels)
        : labels_(labels), scenario_(makeScenario("swap", labels, std::size_t{1} << 20U)),
          name_(benchTables("churn")), writer_(Tessel::TableMemory::sharedForWriting(name_)),
          ring_(scenario_) {
        if (!OvixAgent::loadTables(scenario_.config, "bench", writer_)) {
            throw std::logic_error("the tables refuse the routes");
        }
        writer_.commit();
        router_.emplace(scenario_.config, OvixAgent::openSharedTables(name_, false).value());
    }
    Churn(const Churn&) = delete;
    Churn& operator=(const Churn&) = delete;
    ~Churn() { Tessel::TableMemory::remove(name_); }

    /// Has nearly all labels decided.
    void warm() {
        const auto& slow = router_->fastPath().counts().slow;
        std::uint64_t before = 0;
        do {
            before = slow;
            for (int i = 0; i < 256; ++i) {
                forward();
            }
        } while (slow - before > FrameRing::frames);
    }
    /// Nanoseconds a frame in so much of the fast path's time.
    double run(nanoseconds length, bool changes) {
        nanoseconds total{0};
        nanoseconds next = betweenGenerations;
        std::uint64_t rounds = 0;
        for (; total < length; ++rounds) {
            if (changes && total >= next) {
                change();
                next += betweenGenerations;
            }
            total += forward();
        }
        return static_cast<double>(total.count()) / static_cast<double>(rounds * FrameRing::frames);
    }
    std::uint64_t slowFrames() { return router_->fastPath().counts().slow; }
    std::uint64_t frames() { return slowFrames() + router_->fastPath().counts().fast; }

  private:
    nanoseconds forward() {
        ring_.fill();
        const auto start = std::chrono::steady_clock::now();
        router_->tables().refresh();
        for (std::size_t i = 0; i < FrameRing::frames / OvixAgent::burstFrames; ++i) {
            router_->fastPath().receive(ring_.burst(i));
        }
        return std::chrono::steady_clock::now() - start;
    }
    /// Random labels are swapped for another one.
    void change() {
        Mpls::ViaOptions options;
        options.intf = Lumo::IntfId("east");
        options.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
        const std::array label{Lumo::MplsLabel(1000 + ++generation_ % 1000)};
        const Mpls::WeightedRecord via{Mpls::Via::swap(label, options).value().record(), 1};
        const auto adjacency = Mpls::Hardware::Adjacency::create(std::vector{via}, {}, false);
        std::uniform_int_distribution<std::uint64_t> id(1, labels_);
        for (std::uint32_t i = 0; i < labelsPerGeneration; ++i) {
            writer_.hardware().adjacencyIs(id(random_), *adjacency);
        }
        writer_.commit();
    }

    std::uint32_t labels_;
    Scenario scenario_;
    std::string name_;
    Mpls::TablePublisher writer_;
    FrameRing ring_;
    std::optional<Router> router_;
    std::mt19937 random_{1};
    std::uint32_t generation_ = 0;
};

} // namespace

void printTableChurn(std::uint32_t labels) {
    Churn churn(labels);
    churn.warm();
    constexpr int turns = 5;
    constexpr nanoseconds turn = 500ms;
    double still = 0;
    double changing = 0;
    std::uint64_t frames = 0;
    std::uint64_t slow = 0;
    for (int i = 0; i < turns; ++i) {
        still += churn.run(turn, false) / turns;
        const std::uint64_t framesBefore = churn.frames();
        const std::uint64_t slowBefore = churn.slowFrames();
        changing += churn.run(turn, true) / turns;
        frames += churn.frames() - framesBefore;
        slow += churn.slowFrames() - slowBefore;
    }
    std::printf("%u labels: %.1f ns a frame; with 100 generations a second that change %u of them: "
                "%.1f ns, %.2f times; by the forwarder: %.2f%%\n",
                labels, still, labelsPerGeneration, changing, changing / still,
                100.0 * static_cast<double>(slow) / static_cast<double>(frames));
}

} // namespace Bench
