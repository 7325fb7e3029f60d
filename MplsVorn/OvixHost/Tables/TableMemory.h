#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace Tessel {

/// The memory of a set of tables, of which only the pages that are touched exist: private, or
/// shared under a name (POSIX shared memory). Movable; unmapped with the last owner.
class TableMemory {
  public:
    /// Address space for a million routes in each table, twice.
    static constexpr std::size_t defaultBytes = std::size_t{1} << 30U;

    /// Throws std::bad_alloc when the address space has no room.
    static TableMemory ofProcess(std::size_t bytes = defaultBytes);
    /// No memory.
    static TableMemory none() noexcept { return {}; }
    /// Opens the named memory for the only writer there may be, and makes it when there is none.
    /// Throws TablesBusy while another writer has it, std::system_error when the system refuses.
    static TableMemory sharedForWriting(const std::string& name, std::size_t bytes = defaultBytes);
    /// Opens the named memory for reading alone. Throws std::system_error when there is none.
    static TableMemory sharedForReading(const std::string& name);
    /// Removes the name; a process that has the memory open keeps it. False when there was none.
    static bool remove(const std::string& name);
    /// The file in /dev/shm, without its directory.
    static std::string fileName(const std::string& name) { return "ovix-" + name; }
    /// A name is 1 to 64 letters, digits, '-', '_' and '.'; std::invalid_argument otherwise.
    static void checkName(const std::string& name);

    TableMemory(TableMemory&& other) noexcept { swap(other); }
    TableMemory& operator=(TableMemory other) noexcept {
        swap(other);
        return *this;
    }
    ~TableMemory();

    std::span<std::byte> bytes() const noexcept { return bytes_; }
    const std::string& name() const noexcept { return name_; }

    /// Makes sure that the first `bytes` may be written; false when there is no memory left.
    bool ensure(std::size_t bytes) noexcept;

  private:
    TableMemory() = default;
    void swap(TableMemory& other) noexcept {
        name_.swap(other.name_);
        std::swap(bytes_, other.bytes_);
        std::swap(ensured_, other.ensured_);
        std::swap(file_, other.file_);
    }
    void map(std::size_t bytes, bool writing);

    std::string name_;
    std::span<std::byte> bytes_;
    std::size_t ensured_ = 0;
    int file_ = -1; ///< open, and locked, as long as a writer has shared memory
};

} // namespace Tessel
