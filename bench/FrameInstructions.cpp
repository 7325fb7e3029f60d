// Sends frames down the road under callgrind: frame_instructions SCENARIO FRAMES

#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>

#include "EdgeScenarios.h"
#include "Router.h"
#include "Scenarios.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: frame_instructions SCENARIO FRAMES\n", stderr);
        return 2;
    }
    try {
        constexpr std::uint32_t routes = 1000;
        const std::string name = argv[1];
        const auto edges = Bench::edgeScenarioNames();
        const bool isEdge = std::find(edges.begin(), edges.end(), name) != edges.end();
        const Bench::Scenario scenario =
            isEdge ? Bench::makeEdgeScenario(name, routes) : Bench::makeScenario(name, routes);
        Bench::Router router(scenario.config);
        const std::size_t frames = std::stoul(argv[2]);
        for (std::size_t i = 0; i < frames; ++i) {
            const auto& frame = scenario.frames[i % scenario.frames.size()];
            router.forwarder().receive(
                {scenario.port, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "frame_instructions: %s\n", error.what());
        return 1;
    }
    return 0;
}
