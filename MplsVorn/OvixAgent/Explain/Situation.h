#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Config/Config.h"
#include "Published/TablePublisher.h"
#include "State/Frame.h"
#include "Tables/TableCopy.h"

namespace OvixAgent {

/// All that an agent forwards by, taken from wherever it is known: a configuration file, a running
/// agent, a bundle. A value: changes of a copy change nothing else.
struct Situation {
    AgentConfig config; ///< with the ports as they are
    std::string file;   ///< of the configuration, for messages
    std::string plugin; ///< empty: the one installed with the agent
    /// Null: the label tables are those of the configuration.
    std::shared_ptr<const Tessel::TableCopy> tables;
    std::string tablesName;                  ///< of the shared tables; empty: not shared
    std::vector<NeighbourConfig> neighbours; ///< that are not of the configuration
    bool isLive = false; ///< routes and pseudowires are those of the shared tables, too
    bool anyMac = false; ///< frames for other stations are taken, too
    /// Neighbours are asked for, and frames wait until they are known.
    bool waitsForNeighbours = false;
    /// Of ports that are down or wait, why: a word of PortDown, or another problem.
    std::map<PortIndex, std::string> problems;
    /// The command that explains a frame in this situation, but for its port and the frame.
    std::string explainCommand;

    /// Made to a copy of the tables before it is used.
    using TableChange = std::function<Tessel::Result<void>(Mpls::TablePublisher&)>;
    std::vector<TableChange> changes;
};

/// A frame that is to be explained or replayed.
struct GivenFrame {
    std::vector<std::uint8_t> bytes; ///< Ethernet header first
    std::uint32_t originalLength = 0;
    PortIndex port = 0;
    CaptureTime time{};
    std::string comment; ///< what was assumed where the words left it open
};

} // namespace OvixAgent
