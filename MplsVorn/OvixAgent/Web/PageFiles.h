#pragma once

#include <string_view>

namespace OvixAgent {

/// A file of the page, as it lies in the source.
struct PageFile {
    const char* path; ///< that it is served at
    const char* type;
    std::string_view content;
};

/// The page and what belongs to it.
const PageFile (&pageFiles() noexcept)[3];

} // namespace OvixAgent
