#pragma once

#include <stdexcept>

namespace OvixAgent {

/// A configuration that cannot be used. `what()` is "file:line: key: what is wrong with which
/// value"; the line is left out when the file cannot be read, the key when the text is not YAML.
class ConfigError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace OvixAgent
