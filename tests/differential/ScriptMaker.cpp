#include "ScriptMaker.h"

#include <stdexcept>

#include "ChangeMaker.h"
#include "FrameMaker.h"
#include "RouteMaker.h"
#include "Router.h"
#include "State/Frame.h"

namespace Differential {

namespace {

constexpr std::size_t configs = 3;
constexpr std::size_t bursts = 250;

class ScriptMaker {
  public:
    explicit ScriptMaker(std::uint64_t seed) : random_(seed), network_(random_) {
        script_.seed = seed;
        script_.isLive = random_.chance(40);
        script_.reusesRecords = random_.chance(50);
        script_.anyMac = random_.chance(50);
        for (std::size_t i = 0; i < configs; ++i) {
            addConfig();
        }
    }

    Script make() {
        start();
        for (std::size_t i = 0; i < bursts; ++i) {
            if (random_.chance(35)) {
                change();
            }
            burst();
        }
        return std::move(script_);
    }
    Start makeStart() {
        start();
        return {std::move(script_), std::move(network_)};
    }

  private:
    void addConfig() {
        script_.texts.push_back(makeConfig(random_, network_));
        auto config = OvixAgent::parseConfig(script_.texts.back(), "script");
        if (!config) {
            throw std::logic_error(config.refused().what + " in\n" + script_.texts.back());
        }
        for (OvixAgent::PortConfig& port : config.value().ports) {
            port.routesIp = port.routesIp || script_.isLive;
        }
        script_.configs.push_back(std::move(config).value());
    }
    void commit() {
        script_.steps.push_back({"commit", [](Router& router) { router.commit(); }});
    }
    void start() {
        constexpr int labelChanges = 110;
        constexpr int ipRoutes = 30;
        for (int i = 0; i < labelChanges; ++i) {
            script_.steps.push_back(makeLabelChange(random_, network_));
        }
        for (int i = 0; i < ipRoutes; ++i) {
            script_.steps.push_back(makeIpRouteChange(random_, network_));
            script_.steps.push_back(makeNeighbourChange(random_, network_));
        }
        commit();
    }
    /// A batch of the label tables, which may be empty of what matters, or something else.
    void change() {
        const std::uint32_t count = 1 + random_.below(3);
        const bool ofTables = random_.chance(55);
        for (std::uint32_t i = 0; i < count; ++i) {
            script_.steps.push_back(ofTables ? makeLabelChange(random_, network_)
                                             : makeOtherChange(random_, network_, script_));
        }
        if (ofTables || random_.chance(70)) {
            commit();
        }
    }
    void burst() {
        Step step;
        const std::uint32_t size = random_.chance(25) ? 1
                                   : random_.chance(50)
                                       ? static_cast<std::uint32_t>(OvixAgent::burstFrames)
                                       : 1 + random_.below(OvixAgent::burstFrames);
        step.frames.reserve(size);
        for (std::uint32_t i = 0; i < size; ++i) {
            time_ += random_.below(1'000'000);
            step.frames.push_back(makeFrame(random_, network_, time_));
        }
        step.looksAtCounters = random_.chance(30);
        script_.steps.push_back(std::move(step));
    }

    Random random_;
    Network network_;
    Script script_;
    std::uint64_t time_ = 1'600'000'000'000'000'000;
};

} // namespace

Script makeScript(std::uint64_t seed) {
    Script script = ScriptMaker(seed).make();
    script.steps.back().looksAtCounters = true;
    return script;
}

Start makeStart(std::uint64_t seed) {
    return ScriptMaker(seed).makeStart();
}

} // namespace Differential
