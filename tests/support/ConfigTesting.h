#pragma once

#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "Config/Config.h"

namespace OvixAgent::Testing {

/// Two ports, eth1 and eth2, in the first three lines; what is under test follows.
inline const std::string twoPorts = "ports:\n"
                                    "  - {name: eth1, mac: 02:00:00:00:00:01}\n"
                                    "  - {name: eth2, mac: 02:00:00:00:00:02}\n";

/// The configuration that a text is; it must be accepted.
inline AgentConfig configOf(const std::string& text, const std::string& file = "t.yaml") {
    const Tessel::Result<AgentConfig> config = parseConfig(text, file);
    if (!config) {
        throw std::invalid_argument(config.refused().what);
    }
    return config.value();
}

/// What the configuration is refused with; "" when it is accepted.
inline std::string errorOf(const std::string& text) {
    const Tessel::Result<AgentConfig> config = parseConfig(text, "t.yaml");
    return config ? "" : config.refused().what;
}

/// A configuration and what it is refused with.
struct ErrorCase {
    const char* what;
    std::string text;
    const char* error;
};

inline void expectErrors(const std::vector<ErrorCase>& cases) {
    for (const ErrorCase& one : cases) {
        EXPECT_EQ(errorOf(one.text), one.error) << one.what;
    }
}

/// One decap route for label 100 with the via given as a flow map, from line 4 on.
inline std::string withVia(const std::string& via) {
    return twoPorts + "lfib:\n  decap:\n    - {label: 100, vias: [" + via + "]}\n";
}

} // namespace OvixAgent::Testing
