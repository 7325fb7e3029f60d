#include "Answers/Answer.h"

#include <utility>

namespace OvixAgent {

std::optional<Answer> answerTo(const LabelledPacket& received, std::vector<std::uint8_t> packet,
                               const IsRoutable& isRoutable) {
    constexpr std::uint8_t freshTtl = 255;
    if (packet.empty()) {
        return std::nullopt;
    }
    Answer answer{std::move(packet), {}};
    if (isRoutable(received.ip.source())) {
        return answer;
    }
    for (const Lumo::MplsLabelEntry entry : labelEntries(received.labels)) {
        if (entry.label() != Lumo::routerAlert) {
            answer.labels.push_back(entry.withTtl(freshTtl));
        }
    }
    // A router alert label at the bottom has nothing beneath it that leads anywhere.
    const bool leadsOn = !answer.labels.empty() && answer.labels.back().bos();
    return leadsOn ? std::optional(std::move(answer)) : std::nullopt;
}

} // namespace OvixAgent
