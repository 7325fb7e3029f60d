#include "Tables/TableMemory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "Tables/TableLayout.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

namespace {

[[noreturn]] void refuse(const std::string& name, const char* what) {
    throw std::system_error(errno, std::generic_category(),
                            "tables \"" + name + "\": cannot " + what);
}

/// Who has the memory, as far as it says.
std::string writerOf(int file) {
    std::uint64_t process = 0;
    const auto got =
        pread(file, &process, sizeof process, offsetof(TableLayout::TableHeader, writer));
    return got == sizeof process && process != 0 ? "process " + std::to_string(process)
                                                 : std::string("another process");
}

} // namespace

void TableMemory::checkName(const std::string& name) {
    constexpr const char* allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                    "0123456789-_.";
    if (name.empty() || name.size() > 64 || name.find_first_not_of(allowed) != std::string::npos) {
        throw std::invalid_argument("tables \"" + name +
                                    "\": a name is 1 to 64 letters, digits, '-', '_' and '.'");
    }
}

TableMemory TableMemory::ofProcess(std::size_t bytes) {
    TableMemory made;
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    // A lookup among a million routes would miss the address cache more than the data cache. Where
    // there are no huge pages, nothing is lost.
    madvise(memory, bytes, MADV_HUGEPAGE);
    made.bytes_ = {static_cast<std::byte*>(memory), bytes};
    made.ensured_ = bytes;
    return made;
}

TableMemory TableMemory::sharedForWriting(const std::string& name, std::size_t bytes) {
    checkName(name);
    TableMemory made;
    made.name_ = name;
    made.file_ = shm_open(("/" + fileName(name)).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (made.file_ < 0) {
        refuse(name, "open shared memory");
    }
    // The system releases the lock when the process ends, however that happens.
    if (flock(made.file_, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw TablesBusy("tables \"" + name + "\" are being written by " +
                             writerOf(made.file_));
        }
        refuse(name, "lock shared memory");
    }
    struct stat found {};
    if (fstat(made.file_, &found) != 0) {
        refuse(name, "ask for the size of shared memory");
    }
    const auto size = static_cast<std::size_t>(found.st_size);
    if (size == 0 && ftruncate(made.file_, static_cast<off_t>(bytes)) != 0) {
        refuse(name, "make room in shared memory");
    }
    made.map(size == 0 ? bytes : size, true);
    return made;
}

TableMemory TableMemory::sharedForReading(const std::string& name) {
    checkName(name);
    TableMemory made;
    made.name_ = name;
    made.file_ = shm_open(("/" + fileName(name)).c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (made.file_ < 0) {
        refuse(name, "open shared memory");
    }
    struct stat found {};
    if (fstat(made.file_, &found) != 0) {
        refuse(name, "ask for the size of shared memory");
    }
    if (found.st_size < static_cast<off_t>(TableLayout::heapBytesOffset)) {
        errno = ENODATA;
        refuse(name, "read shared memory that has not been written yet");
    }
    made.map(static_cast<std::size_t>(found.st_size), false);
    close(made.file_);
    made.file_ = -1;
    return made;
}

void TableMemory::map(std::size_t bytes, bool writing) {
    void* memory =
        mmap(nullptr, bytes, writing ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, file_, 0);
    if (memory == MAP_FAILED) {
        refuse(name_, "map shared memory");
    }
    madvise(memory, bytes, MADV_HUGEPAGE);
    bytes_ = {static_cast<std::byte*>(memory), bytes};
}

bool TableMemory::remove(const std::string& name) {
    checkName(name);
    return shm_unlink(("/" + fileName(name)).c_str()) == 0;
}

TableMemory::~TableMemory() {
    if (!bytes_.empty()) {
        munmap(bytes_.data(), bytes_.size());
    }
    if (file_ >= 0) {
        close(file_);
    }
}

// Without this, a write for which the system has no memory left would kill the process.
bool TableMemory::ensure(std::size_t bytes) noexcept {
    if (bytes <= ensured_) {
        return true;
    }
    constexpr std::size_t step = std::size_t{1} << 21U;
    const std::size_t upTo = std::min(bytes_.size(), (bytes + step - 1) / step * step);
    if (bytes > upTo || posix_fallocate(file_, static_cast<off_t>(ensured_),
                                        static_cast<off_t>(upTo - ensured_)) != 0) {
        return false;
    }
    ensured_ = upTo;
    return true;
}

} // namespace Tessel
