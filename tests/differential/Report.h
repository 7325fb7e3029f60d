#pragma once

#include <string>

#include "Comparison.h"

namespace Differential {

/// A script that differs, for people: its configuration, its steps, frames in hexadecimal digits,
/// and what is different after the last one.
std::string reportOf(const Script& script, Fault fault);

/// How many frames of each kind there were and how many of them were fast.
std::string tableOf(const Coverage& coverage);

} // namespace Differential
