#pragma once

#include <cstddef>
#include <span>

namespace Tessel {

/// The stretches of memory in which files of shared tables are mapped. When such a file is cut
/// short, or the system has no memory for a part of it, touching that part raises SIGBUS, which
/// ends a process. Here the stretch becomes zeros instead, all of it, which is no table: so readers
/// and writers run into an invalid header, and find what has happened by wasLost().
namespace MappedFiles {

/// Adds a stretch; the handler of SIGBUS is set with the first. One beyond the 64th is not watched.
void add(std::span<std::byte> mapped, bool isWritten) noexcept;
/// To be called before it is unmapped.
void remove(std::span<std::byte> mapped) noexcept;

/// Whether the stretch that begins here has become zeros.
bool wasLost(const void* begin) noexcept;

} // namespace MappedFiles

} // namespace Tessel
