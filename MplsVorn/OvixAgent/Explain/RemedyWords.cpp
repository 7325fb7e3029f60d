#include "Explain/RemedyWords.h"

#include <algorithm>
#include <fmt/format.h>

namespace OvixAgent {

std::string ctlCommand(const Situation& situation, const std::string& words) {
    return fmt::format("ovixctl --tables {} {}", situation.tablesName, words);
}

std::string configEntry(const Situation& situation, std::string_view section,
                        const std::string& entry) {
    return fmt::format("# in {}\n{}:\n{}", situation.file, section, entry);
}

std::string portKey(const Situation& situation, PortIndex port, const std::string& key) {
    return fmt::format("# in {}, of port {}\n{}", situation.file,
                       situation.config.ports.at(port).name, key);
}

PortIndex portNamed(const AgentConfig& config, std::string_view name) noexcept {
    for (PortIndex i = 0; i < config.ports.size(); ++i) {
        if (config.ports[i].name == name) {
            return i;
        }
    }
    return noPort;
}

std::string hostPrefix(const Lumo::IpGenAddr& address) {
    return fmt::format("{}/{}", address.text(), unsigned{address.bits()});
}

std::string addressWords(const Lumo::IpGenAddr& address) {
    const bool isIpv4 = address.family() == Lumo::IpFamily::ipv4;
    return fmt::format("{} {}", isIpv4 ? "inet" : "inet6", address.text());
}

std::vector<NeighbourConfig> likelyNeighbours(const Situation& situation, PortIndex from) {
    constexpr std::size_t most = 4;
    std::vector<NeighbourConfig> all = situation.config.neighbours;
    all.insert(all.end(), situation.neighbours.begin(), situation.neighbours.end());
    std::stable_partition(all.begin(), all.end(), [&](const NeighbourConfig& neighbour) {
        return neighbour.port != from && situation.config.ports[neighbour.port].isUp;
    });
    all.resize(std::min(all.size(), most));
    return all;
}

} // namespace OvixAgent
