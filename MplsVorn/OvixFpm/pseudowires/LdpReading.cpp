#include "pseudowires/LdpReading.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "Lumo/MplsLabel.h"

namespace OvixFpm {

namespace {

using Json = nlohmann::json;
using L2::Pseudowire;
using State = Pseudowire::State;

/// An `l2vpn` of the configuration.
struct Vpn {
    struct Member {
        std::string name;
        std::string lsrId;
        std::string address; ///< of the neighbour, unless it is its LSR id
        std::uint32_t id = 0;
    };

    std::string name;
    std::vector<std::string> circuits;
    std::vector<Member> members;
};

/// The rest of a line that begins with these words; unset for any other line.
std::optional<std::string> behind(const std::string& line, std::string_view words) {
    if (line.compare(0, words.size(), words) != 0) {
        return std::nullopt;
    }
    return line.substr(words.size(), line.find_last_not_of(" \r") + 1 - words.size());
}

std::uint32_t numberIn(const std::string& text) {
    std::uint32_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) {
        throw std::runtime_error("pw-id " + text);
    }
    return number;
}

void readMember(const std::string& line, Vpn& vpn) {
    if (const auto circuit = behind(line, " member interface ")) {
        vpn.circuits.push_back(*circuit);
    } else if (const auto member = behind(line, " member pseudowire ")) {
        vpn.members.push_back({*member, {}, {}, 0});
    }
    if (vpn.members.empty()) {
        return;
    }
    Vpn::Member& last = vpn.members.back();
    if (const auto lsrId = behind(line, "  neighbor lsr-id ")) {
        last.lsrId = *lsrId;
    } else if (const auto address = behind(line, "  neighbor address ")) {
        last.address = *address;
    } else if (const auto id = behind(line, "  pw-id ")) {
        last.id = numberIn(*id);
    }
}

/// A line that is not indented begins or ends a block.
std::vector<Vpn> readConfiguration(std::istream& text) {
    std::vector<Vpn> vpns;
    bool isInVpn = false;
    bool hasEnd = false;
    for (std::string line; std::getline(text, line);) {
        if (const auto name = behind(line, "l2vpn ")) {
            vpns.push_back({name->substr(0, name->find(' ')), {}, {}});
            isInVpn = true;
        } else if (!line.empty() && line[0] != ' ' && line[0] != '!') {
            isInVpn = false;
            hasEnd = hasEnd || line.compare(0, 3, "end") == 0;
        } else if (isInVpn) {
            readMember(line, vpns.back());
        }
    }
    if (!hasEnd) {
        throw std::runtime_error("the configuration has no end");
    }
    return vpns;
}

/// 0 for none. What no label can be is given as it is, if there is room.
std::uint32_t labelOf(const Json& binding, const char* key) {
    const Json& label = binding.at(key);
    if (label.is_string() && label.get<std::string>() == "unassigned") {
        return 0;
    }
    if (!label.is_number_integer()) {
        throw std::runtime_error(std::string(key) + " is neither a number nor unassigned");
    }
    constexpr std::int64_t most = 0xffffffff;
    const auto value = label.get<std::int64_t>();
    return value <= 0 || value > most ? static_cast<std::uint32_t>(most)
                                      : static_cast<std::uint32_t>(value);
}

bool isLabel(std::uint32_t label) noexcept {
    return label >= Pseudowire::minLabel && label <= Lumo::MplsLabel::max;
}

/// ldpd's answers.
struct Answers {
    Json bindings;
    Json circuits;
    Json discovery;
    std::vector<Vpn> vpns;
};

std::string textAt(const Json& object, const char* key) {
    return object.at(key).get<std::string>();
}

State stateOf(const Pseudowire& pseudowire, const Json& binding, const std::string& status) {
    if (pseudowire.localLabel == 0) {
        return State::noLocalLabel;
    }
    if (pseudowire.remoteLabel == 0) {
        return State::noRemoteLabel;
    }
    if (!isLabel(pseudowire.remoteLabel) || !isLabel(pseudowire.localLabel)) {
        return State::invalidLabel;
    }
    if (textAt(binding, "localVcType") != "Ethernet" ||
        textAt(binding, "remoteVcType") != "Ethernet") {
        return State::otherType;
    }
    if (pseudowire.localMtu != pseudowire.remoteMtu) {
        return State::mtuMismatch;
    }
    return status == "up" ? State::up : State::down;
}

void readBinding(const Json& binding, const std::string& status, Pseudowire& pseudowire) {
    pseudowire.localLabel = labelOf(binding, "localLabel");
    pseudowire.remoteLabel = labelOf(binding, "remoteLabel");
    if (pseudowire.localLabel != 0) {
        pseudowire.controlWord = binding.at("localControlWord").get<int>() != 0;
        pseudowire.localMtu = binding.at("localIfMtu").get<std::uint16_t>();
        const std::string why = textAt(binding, "lastFailureReason");
        pseudowire.why = why != "No Error" ? why : "";
    }
    if (pseudowire.remoteLabel != 0) {
        pseudowire.remoteMtu = binding.at("remoteIfMtu").get<std::uint16_t>();
    }
    pseudowire.state = stateOf(pseudowire, binding, status);
    if (pseudowire.isUp() && binding.at("localControlWord") != binding.at("remoteControlWord")) {
        pseudowire.state = State::down;
        pseudowire.why = "one end alone uses the control word";
    }
}

/// Addresses that the neighbour sends its link hellos from.
std::vector<Lumo::IpGenAddr> adjacentOf(const Json& discovery, const std::string& lsrId) {
    std::vector<Lumo::IpGenAddr> all;
    for (const auto& [name, interface] : discovery.at("interfaces").items()) {
        for (const Json& adjacency : interface.at("adjacencies")) {
            if (textAt(adjacency, "lsrId") == lsrId) {
                all.push_back(Lumo::IpGenAddr::fromText(textAt(adjacency, "sourceAddress")));
            }
        }
    }
    return all;
}

Pseudowire pseudowireOf(const Vpn& vpn, const Vpn::Member& member, const Answers& answers) {
    Pseudowire found;
    found.name = vpn.name + "/" + member.name;
    found.neighbour =
        Lumo::IpGenAddr::fromText(member.address.empty() ? member.lsrId : member.address);
    found.id = member.id;
    found.adjacent = adjacentOf(answers.discovery, member.lsrId);
    found.circuit = vpn.circuits.empty() ? "" : vpn.circuits.front();
    const auto binding = answers.bindings.find(member.lsrId + ": " + std::to_string(member.id));
    const auto circuit = answers.circuits.find(member.name);
    if (binding == answers.bindings.end()) {
        found.state = State::noLocalLabel;
    } else {
        readBinding(*binding, circuit != answers.circuits.end() ? textAt(*circuit, "status") : "",
                    found);
    }
    if (vpn.circuits.size() > 1 || vpn.members.size() > 1) {
        found.state = State::notPointToPoint;
        found.circuit = "";
    } else if (vpn.circuits.empty()) {
        found.state = State::noCircuit;
    }
    return found;
}

Answers readAnswers(const std::string& text) {
    std::istringstream in(text);
    Answers answers;
    for (Json* const answer : {&answers.bindings, &answers.circuits, &answers.discovery}) {
        in >> *answer;
        if (!answer->is_object()) {
            throw std::runtime_error("an answer is no JSON object");
        }
    }
    answers.vpns = readConfiguration(in);
    return answers;
}

} // namespace

std::vector<std::string> ldpQuestions() {
    return {"show l2vpn atom binding json", "show l2vpn atom vc json",
            "show mpls ldp discovery detail json", "show running-config"};
}

Tessel::Result<std::vector<Pseudowire>> readLdp(const std::string& text) {
    try {
        const Answers answers = readAnswers(text);
        std::vector<Pseudowire> all;
        for (const Vpn& vpn : answers.vpns) {
            for (const Vpn::Member& member : vpn.members) {
                all.push_back(pseudowireOf(vpn, member, answers));
            }
        }
        return all;
    } catch (const std::exception& wrong) {
        return Tessel::Refused{
            std::string("ldpd's answers are not those of FRR 8.4, or cut short: ") + wrong.what()};
    }
}

} // namespace OvixFpm
