#pragma once

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "PluginFixture.h"

namespace TestSupport {

/// A via type that only tests register a handler for.
inline constexpr Mpls::LfibViaType madeUpViaType{77};

/// A via set made up for a test.
class MadeUpViaSet : public Ovix::OvixMplsViaSet {
  public:
    explicit MadeUpViaSet(std::vector<std::uint32_t> weightsOfVias = {1},
                          Mpls::LfibViaSetType setType = Mpls::LfibViaSetType::unicast)
        : weights(std::move(weightsOfVias)), setType_(setType) {}

    std::uint32_t numVias() const noexcept override {
        return static_cast<std::uint32_t>(weights.size());
    }
    Mpls::LfibViaType viaType(std::uint32_t) const noexcept override { return viaTypeOfAll; }
    std::uint32_t weight(std::uint32_t index) const noexcept override { return weights[index]; }
    Ovix::OvixMplsVia via(std::uint32_t) const override { return viaOfAll; }
    Mpls::LfibViaSetType type() const noexcept override { return setType_; }

    std::vector<std::uint32_t> weights;
    Mpls::LfibViaType viaTypeOfAll = madeUpViaType;
    Ovix::OvixMplsVia viaOfAll;

  private:
    Mpls::LfibViaSetType setType_;
};

/// A handler that does as the test says and keeps the contexts that it was given.
class ScriptedHandler : public Ovix::MplsViaTypeHandler {
  public:
    using Script = std::function<Ovix::ProcessingResult(const Ptr<Ovix::MplsContext>&)>;

    explicit ScriptedHandler(Script script)
        : MplsViaTypeHandler(madeUpViaType), script_(std::move(script)) {}

    Ovix::ProcessingResult processMplsVia(const Ptr<Ovix::MplsContext>& context) override {
        seen.push_back(context);
        return script_(context);
    }
    std::vector<Ptr<Ovix::MplsContext>> seen;

  private:
    Script script_;
};

/// A hasher that gives set answers and counts how often it is asked.
class TellingHasher : public Ovix::PacketHasherOfType {
  public:
    std::uint32_t hash(const Ovix::PacketHeader&) const override {
        ++asked;
        return value;
    }
    std::uint32_t value = 0;
    mutable unsigned asked = 0;
};

/// The plugin fixture with handlers, hashers and via sets of the test's own, and with the means to
/// compare everything counted and traced.
class MadeUpViasFixture : public PluginFixture {
  protected:
    using CounterRow = std::tuple<std::string, std::string, std::string, std::uint64_t>;

    /// The registry lives as long as the process: no script may outlive its test.
    ~MadeUpViasFixture() override {
        if (const auto& registry = plugin->mplsViaTypeHandlerRegistry()) {
            registry->doRegisterMplsViaTypeHandler(
                Tessel::make<ScriptedHandler>([](const Ptr<Ovix::MplsContext>&) {
                    return Ovix::ProcessingResult{Ovix::frameDealtWith};
                }));
        }
    }

    Ptr<ScriptedHandler> handlerIs(ScriptedHandler::Script script) {
        auto handler = Tessel::make<ScriptedHandler>(std::move(script));
        plugin->mplsViaTypeHandlerRegistry()->doRegisterMplsViaTypeHandler(handler);
        return handler;
    }
    /// Answers the results in turn, one per via handled.
    Ptr<ScriptedHandler> handlerAnswers(std::vector<Ovix::ProcessingResult> results) {
        return handlerIs([results, next = std::size_t{0}](const Ptr<Ovix::MplsContext>&) mutable {
            return results.at(next++);
        });
    }
    Ptr<TellingHasher> tellingHasher(std::uint32_t value = 0) {
        auto hasher = Tessel::make<TellingHasher>();
        hasher->value = value;
        manager->packetHashers()->hasherIs(Ovix::PktHdrType::mpls, hasher);
        return hasher;
    }
    /// A route of one made-up via.
    void madeUpRoute(Table table, std::uint32_t label) {
        const Mpls::WeightedRecord via{swapVia(300), 1};
        writers[table]->routeIs(key(label), madeUpViaType, Mpls::LfibViaSetType::unicast,
                                {&via, 1});
    }

    static Lumo::MplsLabelEntry entryOf(std::uint32_t label, std::uint8_t ttl = 64,
                                        bool bos = false) {
        return {Lumo::MplsLabel(label), 0, bos, ttl};
    }
    static Ptr<Ovix::RoutingNexthops> oneNexthop() {
        auto nexthops = Tessel::make<Ovix::RoutingNexthops>();
        nexthops->nexthopEnq(Tessel::make<Ovix::RoutingNexthop>(Lumo::IntfId()));
        return nexthops;
    }

    /// Everything counted, in order of first count.
    std::vector<CounterRow> everythingCounted() const {
        std::vector<CounterRow> rows;
        for (const auto& counter : counters->counters()) {
            rows.emplace_back(counter.category, counter.module, counter.reason, counter.count);
        }
        return rows;
    }
    static CounterRow row(const char* category, const char* reason, std::uint64_t count = 1) {
        return {category, "Routing::Mpls", reason, count};
    }
    /// How often a message about the frame was traced.
    std::size_t timesTraced(const std::string& line) const {
        return static_cast<std::size_t>(std::count(trace.begin(), trace.end(), "Pkt 7: " + line));
    }
    /// The messages traced about the frame, in order, each behind the frame's prefix.
    static std::vector<std::string> lines(const std::vector<std::string>& messages) {
        std::vector<std::string> all;
        for (const std::string& message : messages) {
            all.push_back("Pkt 7: " + message);
        }
        return all;
    }
};

} // namespace TestSupport
