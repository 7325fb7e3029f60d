#include "Tables/TableLoading.h"

#include <chrono>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Tessel/Exceptions.h"

namespace OvixAgent {

namespace {

using Mpls::RouteKey;

std::string labelText(Lumo::MplsLabel label) {
    return "label " + label.prettyString();
}

/// What the tables have refused, at the line of the configuration that it stands on.
struct NotLoaded {
    std::size_t line;
    std::string what;
};

/// Calls `load`, which throws what the tables refuse.
template <typename Load>
void at(std::size_t line, const std::string& what, Load&& load) {
    try {
        load();
    } catch (const std::exception& refused) {
        throw NotLoaded{line, what + ": " + refused.what()};
    }
}

void loadLabelRoutes(const AgentConfig& config, Mpls::TablePublisher& tables) {
    for (const auto& [route, line] : config.labelRoutes) {
        if (const auto done = tables.labelRoutes().routeIs(route); !done) {
            throw NotLoaded{line, "lfib." + std::string(Tessel::wordOf(route.table)) + ": " +
                                      labelText(route.label) + ": " + done.refused().what};
        }
    }
}

void loadHardware(const AgentConfig& config, Mpls::TablePublisher& tables) {
    for (const auto& placed : config.hardware.adjacencies) {
        const AdjacencyConfig& adjacency = placed.value;
        at(placed.line, "hardware: adjacency " + std::to_string(adjacency.id), [&] {
            tables.hardware().adjacencyIs(adjacency.id,
                                          *Mpls::Hardware::Adjacency::create(adjacency.content));
        });
    }
    for (const auto& placed : config.hardware.routes) {
        at(placed.line, "hardware: " + labelText(placed.value.routeKey.topLabel()),
           [&] { tables.hardware().routeIs(placed.value); });
    }
}

void loadMvpn(const AgentConfig& config, Mpls::TablePublisher& tables) {
    for (const auto& placed : config.mvpn) {
        at(placed.line, "mvpn: VRF " + std::to_string(placed.value.vrfId.value),
           [&] { tables.mvpn().vrfIntfIdIs(placed.value.vrfId, placed.value.intfId); });
    }
}

/// Null when there are none that are finished; says whether there is a file.
Ptr<Tessel::TableReader> openIfThere(const std::string& name, bool& isThere) {
    isThere = true;
    try {
        return Tessel::make<Tessel::TableReader>(Tessel::TableMemory::sharedForReading(name));
    } catch (const std::system_error& absent) {
        if (absent.code() != std::errc::no_such_file_or_directory &&
            absent.code() != std::errc::no_message_available) {
            throw;
        }
        isThere = absent.code() != std::errc::no_such_file_or_directory;
        return nullptr;
    }
}

} // namespace

Tessel::Result<void> loadTables(const AgentConfig& config, const std::string& file,
                                Mpls::TablePublisher& tables) {
    try {
        for (const PortConfig& port : config.ports) {
            tables.interfaces().intfId(port.name);
        }
        loadHardware(config, tables); // its routes and ids come before those of transit routes
        loadLabelRoutes(config, tables);
        loadMvpn(config, tables);
        return {};
    } catch (const NotLoaded& refused) {
        return Tessel::Refused{file + ":" + std::to_string(refused.line) + ": " + refused.what};
    } catch (const std::length_error& full) {
        return Tessel::Refused{file + ": ports: " + full.what()};
    }
}

void clearTables(const Mpls::PublishedTables& published, Mpls::TablePublisher& tables) {
    for (std::size_t i = 0; i < Mpls::lfibs; ++i) {
        const auto table = static_cast<Mpls::TableId>(i);
        published.lfib(table)->forEachRoute(
            [&](const Mpls::LfibRoute& route) { tables.lfib(table).routeDel(route.routeKey); });
    }
    published.hardware()->forEachLabel([&](std::uint32_t label) {
        tables.hardware().routeDel(RouteKey::fromLabel(Lumo::MplsLabel(label)));
    });
    published.hardware()->forEachAdjacency(
        [&](std::uint32_t key) { tables.hardware().adjacencyDel(key); });
    std::vector<Vrf::VrfIdMap::VrfId> vrfs;
    published.mvpn()->forEachEntry([&](const auto& entry) { vrfs.push_back(entry.vrfId); });
    for (const auto vrf : vrfs) {
        tables.mvpn().vrfIntfIdDel(vrf);
    }
}

Tessel::Result<Ptr<Tessel::TableReader>> openSharedTables(const std::string& name, bool create) {
    constexpr int tries = 200;
    for (int i = 0; i < tries; ++i) {
        bool isThere = false;
        if (auto tables = openIfThere(name, isThere)) {
            return tables;
        }
        if (!isThere && !create) {
            return Tessel::Refused{"tables \"" + name +
                                   "\" do not exist; a run or an ovixctl with \"--create\" "
                                   "makes them, and so does ovix-fpm"};
        }
        try {
            const Mpls::TablePublisher empty(Tessel::TableMemory::sharedForWriting(name));
        } catch (const Tessel::TablesBusy&) {
            std::this_thread::sleep_for(
                std::chrono::milliseconds(10)); // another process is creating them
        }
    }
    throw std::runtime_error("tables \"" + name + "\": another process is still creating them");
}

} // namespace OvixAgent
