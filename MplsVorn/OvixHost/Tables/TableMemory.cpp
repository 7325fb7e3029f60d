#include "Tables/TableMemory.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "Tables/MappedFiles.h"
#include "Tables/TableFiles.h"
#include "Tables/TableLayout.h"

namespace Tessel {

namespace {

[[noreturn]] void refuse(const std::string& name, const char* what) {
    throw std::system_error(errno, std::generic_category(),
                            "tables \"" + name + "\": cannot " + what);
}

/// Whether the tables have been made to the end: the magic, which comes first, is written last.
bool isFinished(const Posix::FileDescriptor& file) {
    std::uint64_t magic = 0;
    return pread(file.value(), &magic, sizeof magic, offsetof(TableLayout::TableHeader, magic)) ==
               sizeof magic &&
           magic != 0;
}

/// What is reserved at a time.
constexpr std::size_t reserveStep = std::size_t{1} << 21U;

} // namespace

void TableMemory::checkName(const std::string& name) {
    constexpr const char* allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                    "0123456789-_.";
    if (name.empty() || name.size() > 64 || name.front() == '.' ||
        name.find_first_not_of(allowed) != std::string::npos) {
        throw std::invalid_argument(
            "tables \"" + name +
            "\": a name is 1 to 64 letters, digits, '-', '_' and '.', which is not the first");
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

TableMemory TableMemory::opened(const std::string& name, std::size_t bytes,
                                std::chrono::milliseconds wait) {
    checkName(name);
    TableMemory made;
    made.name_ = name;
    TableFiles::Writing files = TableFiles::openForWriting(
        name, [&](const Posix::FileDescriptor& file) { sizeIs(name, file, bytes); }, wait);
    made.file_ = std::move(files.file);
    made.lock_ = std::move(files.lock);
    made.foundBytes_ = made.fileSize();
    return made;
}

std::size_t TableMemory::fileSize() const {
    struct stat found {};
    if (fstat(file_.value(), &found) != 0) {
        refuse(name_, "ask for the size of shared memory");
    }
    return static_cast<std::size_t>(found.st_size);
}

// A reader that finds a size reads what is there: the beginning has its memory before.
void TableMemory::sizeIs(const std::string& name, const Posix::FileDescriptor& file,
                         std::size_t bytes) {
    if (fallocate(file.value(), FALLOC_FL_KEEP_SIZE, 0,
                  static_cast<off_t>(std::min(bytes, reserveStep))) != 0 ||
        ftruncate(file.value(), static_cast<off_t>(bytes)) != 0) {
        const int error = errno;
        const std::string where = TableFiles::directory();
        errno = error;
        refuse(name, ("make room in " + where).c_str());
    }
}

bool TableMemory::lockAgain(std::chrono::milliseconds wait) {
    lock_ = TableFiles::lockForWriting(name_, wait);
    return now() == Now::same;
}

TableMemory TableMemory::sharedForWriting(const std::string& name, std::size_t bytes,
                                          std::chrono::milliseconds wait) {
    TableMemory made = opened(name, bytes, wait);
    if (made.foundBytes() < TableLayout::heapBytesOffset) {
        errno = ENODATA;
        refuse(name, "use a file that has been cut short; \"ovixctl tables repair\" makes it "
                     "usable again");
    }
    made.map(made.foundBytes(), true);
    return made;
}

TableMemory TableMemory::sharedForRepair(const std::string& name, std::size_t bytes,
                                         std::chrono::milliseconds wait) {
    checkName(name);
    TableFiles::openForReading(name); // makes none
    TableMemory made = opened(name, bytes, wait);
    std::uint64_t own = 0;
    const ssize_t got = pread(made.file_.value(), &own, sizeof own,
                              offsetof(TableLayout::TableHeader, regionBytes));
    const bool isSize = got == sizeof own && own % TableLayout::heapBytesOffset == 0 && own > 0 &&
                        own <= defaultBytes;
    const std::size_t wanted = isSize ? std::size_t{own} : bytes;
    if (made.foundBytes() != wanted) {
        made.sizeIs(wanted);
    }
    made.map(wanted, true);
    return made;
}

TableMemory TableMemory::sharedForReading(const std::string& name) {
    checkName(name);
    TableMemory made;
    made.name_ = name;
    made.file_ = TableFiles::openForReading(name);
    const std::size_t size = made.fileSize();
    if (size < TableLayout::heapBytesOffset || !isFinished(made.file_)) {
        errno = ENODATA;
        refuse(name, "read shared memory that has not been written yet");
    }
    made.map(size, false);
    made.file_ = Posix::FileDescriptor();
    return made;
}

void TableMemory::map(std::size_t bytes, bool writing) {
    void* memory = mmap(nullptr, bytes, writing ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED,
                        file_.value(), 0);
    if (memory == MAP_FAILED) {
        refuse(name_, "map shared memory");
    }
    madvise(memory, bytes, MADV_HUGEPAGE);
    bytes_ = {static_cast<std::byte*>(memory), bytes};
    struct stat found {};
    if (fstat(file_.value(), &found) == 0) {
        identity_ = {found.st_dev, found.st_ino};
    }
    MappedFiles::add(bytes_, writing);
}

bool TableMemory::remove(const std::string& name) {
    checkName(name);
    return TableFiles::remove(name);
}

TableMemory::~TableMemory() {
    if (!bytes_.empty()) {
        MappedFiles::remove(bytes_);
        munmap(bytes_.data(), bytes_.size());
    }
}

bool TableMemory::wasLost() const noexcept {
    return MappedFiles::wasLost(bytes_.data());
}

TableMemory::Now TableMemory::now() const {
    try {
        const Posix::FileDescriptor file = TableFiles::openForReading(name_);
        struct stat found {};
        if (fstat(file.value(), &found) != 0) {
            return Now::removed;
        }
        if (std::pair(found.st_dev, found.st_ino) != identity_) {
            return isFinished(file) ? Now::replaced : Now::removed;
        }
        if (static_cast<std::size_t>(found.st_size) < bytes_.size()) {
            return Now::cutShort;
        }
        return wasLost() ? Now::replaced : Now::same;
    } catch (const std::system_error& refused) {
        const bool isUnknown = refused.code() == std::errc::too_many_files_open ||
                               refused.code() == std::errc::too_many_files_open_in_system;
        return isUnknown ? Now::same : Now::removed;
    }
}

// To the end of its last bytes: a copy of tables may have holes where zeros were.
std::size_t TableMemory::bytesInUse() const noexcept {
    if (!file_.isOpen()) {
        return bytes_.size();
    }
    off_t end = 0;
    for (off_t at = lseek(file_.value(), 0, SEEK_DATA); at >= 0;
         at = lseek(file_.value(), end, SEEK_DATA)) {
        end = lseek(file_.value(), at, SEEK_HOLE);
    }
    return std::min(bytes_.size(), static_cast<std::size_t>(end));
}

// Without this, a write for which the system has no memory left would kill the process.
bool TableMemory::ensure(std::size_t bytes) noexcept {
    if (bytes <= ensured_) {
        return true;
    }
    const std::size_t upTo =
        std::min(bytes_.size(), (bytes + reserveStep - 1) / reserveStep * reserveStep);
    if (bytes > upTo || posix_fallocate(file_.value(), static_cast<off_t>(ensured_),
                                        static_cast<off_t>(upTo - ensured_)) != 0) {
        return false;
    }
    ensured_ = upTo;
    return true;
}

} // namespace Tessel
