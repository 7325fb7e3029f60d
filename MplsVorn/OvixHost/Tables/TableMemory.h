#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <sys/types.h>
#include <utility>

#include "Posix/FileDescriptor.h"

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
    /// Opens the named memory for the only writer there may be at a time, and makes it when there
    /// is none; see TableFiles. Throws TablesBusy when another writer still has it after `wait`,
    /// std::system_error when the system refuses, has no memory left, when the file has been cut
    /// short, or when the files are not to be trusted.
    static TableMemory sharedForWriting(const std::string& name, std::size_t bytes = defaultBytes,
                                        std::chrono::milliseconds wait = {});
    /// Opens the named memory for reading alone. Throws std::system_error when there is none, when
    /// its tables are still being made, or when it is not to be trusted.
    static TableMemory sharedForReading(const std::string& name);
    /// The same as for writing; memory that has been cut short gets back the size that it says it
    /// has, or else this one.
    static TableMemory sharedForRepair(const std::string& name, std::size_t bytes = defaultBytes,
                                       std::chrono::milliseconds wait = {});
    /// Removes the name; a process that has the memory open keeps it. False when there was none.
    static bool remove(const std::string& name);
    /// A name is 1 to 64 letters, digits, '-', '_' and '.', which is not the first;
    /// std::invalid_argument otherwise.
    static void checkName(const std::string& name);

    TableMemory(TableMemory&& other) noexcept { swap(other); }
    TableMemory& operator=(TableMemory other) noexcept {
        swap(other);
        return *this;
    }
    ~TableMemory();

    std::span<std::byte> bytes() const noexcept { return bytes_; }
    const std::string& name() const noexcept { return name_; }

    /// Lets other writers have the memory, which must not be written until it is locked again.
    void unlock() noexcept { lock_ = Posix::FileDescriptor(); }
    /// False when the name leads to other memory by now. Throws as opening it does.
    bool lockAgain(std::chrono::milliseconds wait);

    /// Whether the file was cut short, or could not be read, since it was mapped: then all of the
    /// memory has become zeros, which nobody else sees.
    bool wasLost() const noexcept;
    /// How large the file was when it was opened for writing or repair.
    std::size_t foundBytes() const noexcept { return foundBytes_; }

    /// What the name leads to.
    enum class Now : std::uint8_t {
        same,     ///< this file, all of it
        cutShort, ///< this file, which has become shorter
        replaced, ///< another file, or this one with memory that is not what was mapped
        removed   ///< no file, or none that may be read, or one that is still being made
    };
    Now now() const;

    /// How much of a file there is, from the start.
    std::size_t bytesInUse() const noexcept;

    /// Makes sure that the first `bytes` may be written; false when there is no memory left.
    bool ensure(std::size_t bytes) noexcept;

  private:
    TableMemory() = default;
    void swap(TableMemory& other) noexcept {
        name_.swap(other.name_);
        std::swap(bytes_, other.bytes_);
        std::swap(ensured_, other.ensured_);
        std::swap(foundBytes_, other.foundBytes_);
        std::swap(identity_, other.identity_);
        std::swap(file_, other.file_);
        std::swap(lock_, other.lock_);
    }
    static TableMemory opened(const std::string& name, std::size_t bytes,
                              std::chrono::milliseconds wait = {});
    void sizeIs(std::size_t bytes) { sizeIs(name_, file_, bytes); }
    static void sizeIs(const std::string& name, const Posix::FileDescriptor& file,
                       std::size_t bytes);
    std::size_t fileSize() const;
    void map(std::size_t bytes, bool writing);

    std::string name_;
    std::span<std::byte> bytes_;
    std::size_t ensured_ = 0;
    std::size_t foundBytes_ = 0;
    std::pair<dev_t, ino_t> identity_{}; ///< of the file
    Posix::FileDescriptor file_;         ///< open as long as a writer has shared memory
    Posix::FileDescriptor lock_;         ///< likewise, and locked
};

} // namespace Tessel
