#include "Answers/AnswerCounts.h"

namespace OvixAgent {

std::vector<std::pair<std::string, std::uint64_t>> AnswerCounts::named() const {
    static constexpr std::array<const char*, answerReasons> names{"time exceeded", "too big",
                                                                  "LSP echo"};
    std::vector<std::pair<std::string, std::uint64_t>> all;
    const auto add = [&](const std::string& name, std::uint64_t count) {
        if (count != 0) {
            all.emplace_back(name, count);
        }
    };
    for (std::size_t i = 0; i < answerReasons; ++i) {
        add(names[i] + std::string(": sent"), counts_[i].sent);
        add(names[i] + std::string(": suppressed"), counts_[i].suppressed);
    }
    return all;
}

} // namespace OvixAgent
