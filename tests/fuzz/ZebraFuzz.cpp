#include "Input.h"
#include "nexthops/RouteAnswers.h"

/// What vtysh prints of zebra's answers about routes. No next hop is taken that packets cannot be
/// sent to.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t questions = 2;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto answers = OvixFpm::readRouteAnswers(text, questions);
    if (!answers) {
        Fuzz::check(!answers.refused().what.empty(), "a refusal without a reason");
        return 0;
    }
    Fuzz::check(answers.value().size() == questions, "a question without an answer");
    for (const auto& hops : answers.value()) {
        for (const OvixFpm::NextHop& hop : hops) {
            Fuzz::check(hop.gateway.family() == Lumo::IpFamily::ipv4, "no IPv4 next hop");
            for (const Lumo::MplsLabel label : hop.labels) {
                Fuzz::check(label != Lumo::implicitNull, "implicit null in a stack");
            }
        }
    }
    return 0;
}
