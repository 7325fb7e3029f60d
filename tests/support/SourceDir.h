#pragma once

namespace TestSupport {

/// The folder of the sources, where the tests' data is. Compiled on its own: it is all that differs
/// between two checkouts, and the compiler cache serves them with the rest.
const char* sourceDir() noexcept;

} // namespace TestSupport
