#pragma once

#include <string>

#include "Comparison.h"

namespace Differential {

/// A script that differs, for people: its configuration, its steps, frames in hexadecimal digits,
/// and what is different after the last one.
std::string reportOf(const Script& script, Fault fault);

/// What is different after the last step: a line each.
std::string differenceOf(const Script& script, Fault fault);

/// The same for differences that probably have one cause.
std::string kindOf(const std::string& difference);

/// How many frames of each kind there were and how many of them were fast.
std::string tableOf(const Coverage& coverage);

} // namespace Differential
