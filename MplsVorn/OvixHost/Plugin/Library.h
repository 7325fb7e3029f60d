#pragma once

#include <stdexcept>
#include <string>

namespace Plugin {

/// A shared library that could not be loaded; the text names the file and the reason.
class LoadError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A loaded shared library; loading it runs the registrations of the plugins inside. It stays
/// loaded until the process ends, because counted objects of its types may outlive any owner.
class Library {
  public:
    /// Throws LoadError.
    static void load(const std::string& file);
};

} // namespace Plugin
