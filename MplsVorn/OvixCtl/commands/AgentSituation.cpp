#include "commands/AgentSituation.h"

#include <fmt/format.h>
#include <memory>

#include "Explain/HeaderWords.h"
#include "Explain/RemedyWords.h"
#include "Program/Version.h"
#include "Tables/TableCopy.h"
#include "Tables/TableMemory.h"
#include "commands/AgentAnswer.h"

namespace OvixCtl {

namespace {

using OvixAgent::Situation;

/// The ports as they are: what a live run has taken from its interfaces.
void takePort(const Json& listed, Situation& situation) {
    const auto port = portNamed(situation.config, listed.at("name").get<std::string>());
    if (port == OvixAgent::noPort) {
        return;
    }
    OvixAgent::PortConfig& config = situation.config.ports[port];
    config.isUp = listed.at("state") == "up";
    if (listed.at("problem").is_string()) {
        situation.problems[port] = listed.at("problem").get<std::string>();
    }
    config.mtu = listed.at("mtu").get<std::uint32_t>();
    config.mac = OvixAgent::macFromText(listed.at("mac").get<std::string>()).value_or(config.mac);
    config.routesIp = config.routesIp || situation.isLive;
}

void takeNeighbour(const Json& listed, Situation& situation) {
    const auto port = portNamed(situation.config, listed.at("port").get<std::string>());
    const auto mac = OvixAgent::macFromText(listed.at("mac").get<std::string>());
    if (port != OvixAgent::noPort && mac && !listed.at("configured").get<bool>()) {
        situation.neighbours.push_back(
            {Lumo::IpGenAddr::fromText(listed.at("address").get<std::string>()), port, *mac});
    }
}

Tessel::Result<Situation> begun(const Json& facts) {
    const auto version = facts.at("version").get<std::string>();
    if (version != OvixLog::version()) {
        return Tessel::Refused{
            fmt::format("the agent is of version {}, and this is {}", version, OvixLog::version())};
    }
    std::string text;
    for (const Json& block : facts.at("config")) {
        text += block.get<std::string>();
    }
    const auto file = facts.at("file").get<std::string>();
    Tessel::Result<OvixAgent::AgentConfig> config = OvixAgent::parseConfig(text, file);
    if (!config) {
        return config.refused();
    }
    Situation situation;
    situation.config = std::move(config).value();
    situation.file = file;
    situation.plugin = facts.at("plugin").get<std::string>();
    situation.tablesName = facts.at("tables").get<std::string>();
    situation.isLive = facts.at("run") == "live";
    situation.anyMac = facts.at("anyMac").get<bool>();
    return situation;
}

Tessel::Refused notAnAgents(const Json::exception& wrong) {
    return {fmt::format("the answer is not an agent's: {}", wrong.what())};
}

void takeTables(Situation& situation) {
    if (!situation.tablesName.empty()) {
        const auto memory = Tessel::TableMemory::sharedForReading(situation.tablesName);
        situation.tables = std::make_shared<const Tessel::TableCopy>(
            Tessel::TableCopy::ofNewest(situation.tablesName, memory.bytes()));
    }
}

} // namespace

Tessel::Result<Situation> configurationOf(const Request& request) {
    const Tessel::Result<Json> facts = answerOf(request, "situation");
    if (!facts) {
        return facts.refused();
    }
    try {
        Tessel::Result<Situation> situation = begun(facts.value());
        if (!situation) {
            return situation;
        }
        const Tessel::Result<Json> ports = listOf(request, "ports");
        if (!ports) {
            return ports.refused();
        }
        for (const Json& port : ports.value().at("ports")) {
            takePort(port, situation.value());
        }
        return situation;
    } catch (const Json::exception& wrong) {
        return notAnAgents(wrong);
    }
}

Tessel::Result<Situation> situationOf(const Request& request) {
    Tessel::Result<Situation> situation = configurationOf(request);
    if (!situation) {
        return situation;
    }
    const Tessel::Result<Json> neighbours = listOf(request, "neighbours");
    if (!neighbours) {
        return neighbours.refused();
    }
    try {
        for (const Json& neighbour : neighbours.value().at("neighbours")) {
            takeNeighbour(neighbour, situation.value());
        }
        takeTables(situation.value());
        return situation;
    } catch (const Json::exception& wrong) {
        return notAnAgents(wrong);
    }
}

} // namespace OvixCtl
