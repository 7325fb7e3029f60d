#pragma once

#include <vector>

#include "Capture/CaptureReader.h"
#include "Command/CliOptions.h"
#include "Config/ConfigTypes.h"

namespace OvixAgent {

/// Opens the captures for their ports. Throws CaptureError when a port is not configured or a
/// capture cannot be used; all ports are looked at before any file is.
std::vector<CaptureReader> openInputs(const std::vector<InputOption>& inputs,
                                      const std::vector<PortConfig>& ports);

} // namespace OvixAgent
