// Sends frames down the road under callgrind: frame_instructions SCENARIO FRAMES

#include <cstdio>
#include <exception>
#include <string>

#include "Router.h"
#include "Scenarios.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fputs("usage: frame_instructions SCENARIO FRAMES\n", stderr);
        return 2;
    }
    try {
        constexpr std::uint32_t routes = 1000;
        const Bench::Scenario scenario = Bench::makeScenario(argv[1], routes);
        Bench::Router router(scenario.config);
        const std::size_t frames = std::stoul(argv[2]);
        for (std::size_t i = 0; i < frames; ++i) {
            const auto& frame = scenario.frames[i % scenario.frames.size()];
            router.forwarder().receive({0, {}, frame, static_cast<std::uint32_t>(frame.size())});
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "frame_instructions: %s\n", error.what());
        return 1;
    }
    return 0;
}
