#include "Tables/TableFiles.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

#include "Posix/ServiceAccounts.h"
#include "Tables/TableLayout.h"
#include "Tessel/Exceptions.h"

namespace Tessel {

namespace {

using Posix::FileDescriptor;

constexpr const char* ofRoot = "/dev/shm/ovix";

[[noreturn]] void refuseFiles(const std::string& name, const std::string& what, int error = errno) {
    throw std::system_error(error, std::generic_category(), "tables \"" + name + "\": " + what);
}

std::string octal(mode_t mode) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & 07777U);
    return text.data();
}

/// What is open must be of this type, belong to this user or root, and be closed to others.
void checkTrusted(const std::string& name, const std::string& path, const FileDescriptor& open,
                  mode_t type, mode_t forbidden) {
    struct stat found {};
    if (fstat(open.value(), &found) != 0) {
        refuseFiles(name, "cannot examine " + path);
    }
    if ((found.st_mode & S_IFMT) != type) {
        refuseFiles(name, path + " is no plain file", EPERM);
    }
    if (!Posix::ServiceAccounts::isTrusted(found.st_uid)) {
        refuseFiles(name,
                    path + " belongs to user " + std::to_string(found.st_uid) +
                        ", neither to root nor to this user",
                    EPERM);
    }
    // Their directory is closed to all but the group of those who read.
    const bool isShared = type == S_IFREG && (found.st_mode & forbidden) != 0 &&
                          (found.st_mode & S_IWOTH) == 0 &&
                          Posix::ServiceAccounts::isAdmins(found.st_gid);
    if ((found.st_mode & forbidden) != 0 && !isShared) {
        refuseFiles(name, path + " is open to others, with mode " + octal(found.st_mode), EPERM);
    }
}

/// A directory of tables that may be trusted.
class Directory {
  public:
    Directory(const std::string& name, std::string path, bool makes)
        : name_(name), path_(std::move(path)) {
        constexpr int how = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
        open_ = FileDescriptor(::open(path_.c_str(), how));
        if (!open_.isOpen() && errno == ENOENT && makes) {
            const bool isNew = mkdir(path_.c_str(), 0750) == 0;
            open_ = FileDescriptor(::open(path_.c_str(), how));
            if (isNew && open_.isOpen()) {
                fchmod(open_.value(), 02750); // files get the group of the directory
            }
        }
        if (!open_.isOpen()) {
            refuseFiles(name_, "cannot open " + path_);
        }
        checkTrusted(name_, path_, open_, S_IFDIR, S_IWGRP | S_IRWXO);
        struct stat found {};
        isService_ =
            fstat(open_.value(), &found) == 0 && Posix::ServiceAccounts::isService(found.st_uid);
    }

    int value() const noexcept { return open_.value(); }

    FileDescriptor file(const std::string& file, int how, mode_t mode, mode_t forbidden) const {
        const std::string path = path_ + "/" + file;
        FileDescriptor opened(
            openat(value(), file.c_str(), how | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, mode));
        if (!opened.isOpen()) {
            refuseFiles(name_, "cannot open " + path);
        }
        checkTrusted(name_, path, opened, S_IFREG, forbidden);
        if (isService_ && (how & O_CREAT) != 0) {
            const mode_t forReaders = (mode & S_IRGRP) != 0 ? S_IROTH : 0;
            Posix::ServiceAccounts::shareWithAdmins(opened.value(), 0660 | forReaders);
        }
        return opened;
    }
    FileDescriptor tables(int how) const { return file(name_, how, 0640, S_IWGRP | S_IRWXO); }

    /// Whether the name still is that of the open file.
    bool has(const std::string& file, const FileDescriptor& opened) const {
        struct stat named {};
        struct stat found {};
        return fstatat(value(), file.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
               fstat(opened.value(), &found) == 0 && named.st_ino == found.st_ino;
    }

  private:
    std::string name_;
    std::string path_;
    FileDescriptor open_;
    bool isService_ = false;
};

std::string lockOf(const std::string& name) {
    return name + ":lock"; // no tables have such a name
}

/// $OVIX_TABLES_DIR: no other directory is then looked at. Null when none is chosen.
const char* chosenDirectory() {
    const char* const chosen = secure_getenv("OVIX_TABLES_DIR");
    return chosen != nullptr && *chosen != '\0' ? chosen : nullptr;
}

/// The directory to write these tables in: the system's, where they are and this user may see
/// them, unless there are own ones.
std::string directoryToWrite(const std::string& name) {
    const std::string own = TableFiles::directory();
    const std::string ofSystem = std::string(ofRoot) + "/" + name;
    const bool areSystems = chosenDirectory() == nullptr &&
                            access((own + "/" + name).c_str(), F_OK) != 0 &&
                            access(ofSystem.c_str(), F_OK) == 0;
    return areSystems ? ofRoot : own;
}

/// The name of tables that are being made.
std::string newOf(const std::string& name) {
    return name + ":new";
}

// Whoever has the lock makes them; what one has left who was killed is made anew.
FileDescriptor newTables(const Directory& directory, const std::string& name,
                         const std::function<void(const FileDescriptor&)>& makeRoom) {
    unlinkat(directory.value(), newOf(name).c_str(), 0);
    FileDescriptor made =
        directory.file(newOf(name), O_RDWR | O_CREAT | O_EXCL, 0640, S_IWGRP | S_IRWXO);
    if (makeRoom) {
        makeRoom(made);
    }
    if (renameat(directory.value(), newOf(name).c_str(), directory.value(), name.c_str()) != 0) {
        refuseFiles(name, "cannot name the file");
    }
    return made;
}

/// Who has the tables, as far as they say.
std::string writerOf(const Directory& directory, const std::string& name) {
    std::uint64_t process = 0;
    const FileDescriptor file(openat(directory.value(), name.c_str(), O_RDONLY | O_CLOEXEC));
    const auto got =
        pread(file.value(), &process, sizeof process, offsetof(TableLayout::TableHeader, writer));
    return got == sizeof process && process != 0 ? "process " + std::to_string(process)
                                                 : std::string("another process");
}

using Clock = std::chrono::steady_clock;

// What the bytes of the file of locks are for. A writer first takes the turn, which it keeps until
// it may write: so one that releases the lock and wants it again at once comes behind those who
// wait.
constexpr off_t writing = 0;
constexpr off_t turn = 1;
constexpr off_t firstOwner = 16;

/// Locks or releases a byte. The lock belongs to the open file: the system releases it when the
/// process ends, however that happens.
bool setLock(const std::string& name, const FileDescriptor& lock, short how, off_t byte) {
    struct flock wanted {};
    wanted.l_type = how;
    wanted.l_whence = SEEK_SET;
    wanted.l_start = byte;
    wanted.l_len = 1;
    if (fcntl(lock.value(), F_OFD_SETLK, &wanted) == 0) {
        return true;
    }
    if (errno != EAGAIN && errno != EACCES) {
        refuseFiles(name, "cannot lock shared memory");
    }
    return false;
}

bool lockBy(const std::string& name, const FileDescriptor& lock, off_t byte,
            Clock::time_point end) {
    while (!setLock(name, lock, F_WRLCK, byte)) {
        if (Clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

FileDescriptor openLock(const Directory& directory, const std::string& name) {
    return directory.file(lockOf(name), O_RDWR | O_CREAT, 0600, S_IRWXG | S_IRWXO);
}

// The lock is of the file that has the name: it may have been removed before it was locked.
FileDescriptor lockIn(const Directory& directory, const std::string& name,
                      std::chrono::milliseconds wait) {
    const Clock::time_point end = Clock::now() + wait;
    for (;;) {
        FileDescriptor lock = openLock(directory, name);
        if (!lockBy(name, lock, turn, end) || !lockBy(name, lock, writing, end)) {
            throw TablesBusy("tables \"" + name + "\" are being written by " +
                             writerOf(directory, name));
        }
        setLock(name, lock, F_UNLCK, turn);
        if (directory.has(lockOf(name), lock)) {
            return lock;
        }
    }
}

} // namespace

std::string TableFiles::directory() {
    if (const char* const chosen = chosenDirectory()) {
        return chosen;
    }
    return geteuid() == 0 ? ofRoot : ofRoot + ("-" + std::to_string(geteuid()));
}

FileDescriptor TableFiles::openForReading(const std::string& name) {
    try {
        return Directory(name, directory(), false).tables(O_RDONLY);
    } catch (const std::system_error& absent) {
        if (absent.code() != std::errc::no_such_file_or_directory || chosenDirectory() != nullptr ||
            directory() == ofRoot) {
            throw;
        }
    }
    return Directory(name, ofRoot, false).tables(O_RDONLY);
}

TableFiles::Writing
TableFiles::openForWriting(const std::string& name,
                           const std::function<void(const FileDescriptor&)>& makeRoom,
                           std::chrono::milliseconds wait) {
    const Directory directory(name, directoryToWrite(name), true);
    FileDescriptor locked = lockIn(directory, name, wait);
    if (faccessat(directory.value(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        return {directory.tables(O_RDWR), std::move(locked)};
    }
    try {
        return {newTables(directory, name, makeRoom), std::move(locked)};
    } catch (...) {
        unlinkat(directory.value(), newOf(name).c_str(), 0);
        unlinkat(directory.value(), lockOf(name).c_str(), 0);
        throw;
    }
}

FileDescriptor TableFiles::lockForWriting(const std::string& name, std::chrono::milliseconds wait) {
    return lockIn(Directory(name, directoryToWrite(name), true), name, wait);
}

FileDescriptor TableFiles::holdOwner(const std::string& name, std::uint8_t owner) {
    FileDescriptor lock = openLock(Directory(name, directoryToWrite(name), true), name);
    if (!setLock(name, lock, F_WRLCK, firstOwner + owner)) {
        throw TablesBusy("tables \"" + name + "\": another process publishes routes of this owner");
    }
    return lock;
}

bool TableFiles::remove(const std::string& name) {
    const std::string path = directory() + "/" + name;
    unlink((directory() + "/" + lockOf(name)).c_str());
    return unlink(path.c_str()) == 0;
}

} // namespace Tessel
