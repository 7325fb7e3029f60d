#include "Tables/TableFiles.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <system_error>

#include "Refusal.h"
#include "ShmTesting.h"
#include "Tables/TableMemory.h"

namespace TableFilesTest {

namespace {

using namespace ShmTesting;
using Posix::FileDescriptor;
using Tessel::TableMemory;
using Tessel::TablesBusy;
using TestSupport::refusal;

namespace TableFiles = Tessel::TableFiles;

constexpr uid_t stranger = 65534;

/// A directory of tables of its own.
class TableFilesTest : public testing::Test {
  protected:
    TableFilesTest() { setenv("OVIX_TABLES_DIR", directory.c_str(), 1); }
    ~TableFilesTest() override {
        unsetenv("OVIX_TABLES_DIR");
        std::filesystem::remove_all(directory);
    }

    std::string file(const std::string& name = "lab") const { return directory + "/" + name; }
    void makeTables() const { TableFiles::openForWriting("lab"); }
    static mode_t modeOf(const std::string& path) {
        struct stat found {};
        EXPECT_EQ(lstat(path.c_str(), &found), 0) << path;
        return found.st_mode & 07777U;
    }
    /// What writers and readers say, who have to agree.
    static std::string refused() {
        const std::string reading = refusal([] { TableFiles::openForReading("lab"); });
        EXPECT_EQ(refusal([] { TableFiles::openForWriting("lab"); }), reading);
        return reading;
    }
    static bool isRoot() { return geteuid() == 0; }
    /// Whether it is so where the directory is a small file system of its own; needs root.
    template <typename Condition>
    bool isSoOnADiskOf(const char* size, Condition&& isSo) const {
        EXPECT_EQ(mkdir(directory.c_str(), 0750), 0);
        Child alone([&] {
            const std::string options = std::string("mode=0750,size=") + size;
            const bool isMounted =
                unshare(CLONE_NEWNS) == 0 &&
                mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
                mount("tmpfs", directory.c_str(), "tmpfs", 0, options.c_str()) == 0;
            _exit(isMounted && isSo() ? 7 : 8);
        });
        const int status = alone.wait();
        return WIFEXITED(status) && WEXITSTATUS(status) == 7;
    }

    const std::string directory = "/dev/shm/ovix-test-" + std::to_string(getpid());
};

} // namespace

TEST_F(TableFilesTest, OnlyTheOwnerWritesAndOnlyTheGroupReads) {
    makeTables();
    EXPECT_EQ(modeOf(directory), 02750U);
    EXPECT_EQ(modeOf(file()), 0640U);
    EXPECT_EQ(modeOf(file("lab:lock")), 0600U);
}

TEST_F(TableFilesTest, WhoMayOnlyReadKeepsNoWriterOut) {
    makeTables();
    const FileDescriptor reader = TableFiles::openForReading("lab");
    ASSERT_EQ(flock(reader.value(), LOCK_EX | LOCK_NB), 0);
    const TableFiles::Writing first = TableFiles::openForWriting("lab");
    EXPECT_TRUE(first.lock.isOpen());
    EXPECT_THROW(TableFiles::openForWriting("lab"), TablesBusy);
}

TEST_F(TableFilesTest, ADirectoryThatOthersMayEnterOrWriteIsRefused) {
    makeTables();
    for (const mode_t mode : {0755U, 0770U, 0751U, 0752U}) {
        chmod(directory.c_str(), mode);
        EXPECT_EQ(
            refused().find("tables \"lab\": " + directory + " is open to others, with mode 0"), 0U)
            << mode;
    }
}

TEST_F(TableFilesTest, AFileThatOthersMayReadOrItsGroupMayWriteIsRefused) {
    makeTables();
    for (const mode_t mode : {0644U, 0660U, 0642U}) {
        chmod(file().c_str(), mode);
        EXPECT_EQ(refused().find("tables \"lab\": " + file() + " is open to others, with mode 0"),
                  0U)
            << mode;
    }
    chmod(file().c_str(), 0640U);
    chmod(file("lab:lock").c_str(), 0640U);
    EXPECT_NO_THROW(TableFiles::openForReading("lab"));
    EXPECT_NE(refusal([] { TableFiles::openForWriting("lab"); }).find("lab:lock is open to others"),
              std::string::npos);
}

TEST_F(TableFilesTest, WhatAStrangerHasMadeIsRefused) {
    if (!isRoot()) {
        GTEST_SKIP() << "needs root";
    }
    makeTables();
    ASSERT_EQ(chown(file().c_str(), stranger, stranger), 0);
    EXPECT_EQ(refused().find("tables \"lab\": " + file() + " belongs to user 65534"), 0U);
    ASSERT_EQ(chown(file().c_str(), 0, 0), 0);
    ASSERT_EQ(chown(directory.c_str(), stranger, stranger), 0);
    EXPECT_EQ(refused().find("tables \"lab\": " + directory + " belongs to user 65534"), 0U);
}

TEST_F(TableFilesTest, WhatIsNoPlainFileIsRefused) {
    ASSERT_EQ(mkdir(directory.c_str(), 0750), 0);
    ASSERT_EQ(mkfifo(file().c_str(), 0640), 0);
    EXPECT_EQ(refused().find("tables \"lab\": " + file() + " is no plain file"), 0U);
    std::filesystem::remove(file());
    ASSERT_EQ(symlink("/etc/passwd", file().c_str()), 0);
    EXPECT_EQ(refused().find("tables \"lab\": cannot open " + file()), 0U);
    std::filesystem::remove_all(directory);
    ASSERT_EQ(symlink("/tmp", directory.c_str()), 0);
    EXPECT_EQ(refused().find("tables \"lab\": cannot open " + directory), 0U);
}

TEST_F(TableFilesTest, ALockThatWasRemovedLocksNothing) {
    const TableFiles::Writing old = TableFiles::openForWriting("lab");
    EXPECT_THROW(TableFiles::openForWriting("lab"), TablesBusy);
    EXPECT_TRUE(TableFiles::remove("lab"));
    EXPECT_FALSE(TableFiles::remove("lab"));
    EXPECT_NO_THROW(TableFiles::openForWriting("lab"));
}

TEST_F(TableFilesTest, AUserWithoutTablesReadsThoseOfRoot) {
    if (!isRoot()) {
        GTEST_SKIP() << "needs root";
    }
    unsetenv("OVIX_TABLES_DIR");
    EXPECT_EQ(TableFiles::directory(), "/dev/shm/ovix");
    Child user([] {
        const bool isOther = setgid(stranger) == 0 && setuid(stranger) == 0;
        const bool isOwn = TableFiles::directory() == "/dev/shm/ovix-65534";
        _exit(isOther && isOwn ? 7 : 8);
    });
    EXPECT_EQ(WEXITSTATUS(user.wait()), 7);
}

TEST_F(TableFilesTest, ADirectoryThatIsChosenIsTheOnlyOne) {
    const auto said = [] { return refusal([] { TableFiles::openForReading("lab"); }); };
    EXPECT_NE(said().find("cannot open " + directory), std::string::npos) << said();
    TableFiles::openForWriting("another");
    EXPECT_NE(said().find("cannot open " + file()), std::string::npos) << said();
}

TEST_F(TableFilesTest, AFullFileSystemIsAnErrorForBothSides) {
    if (!isRoot()) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_TRUE(isSoOnADiskOf("64k", [&] {
        const std::string writing = refusal([] { TableMemory::sharedForWriting("lab"); });
        const std::string reading = refusal([] { TableMemory::sharedForReading("lab"); });
        return writing.find("No space left") != std::string::npos &&
               reading.find("No such file") != std::string::npos &&
               std::filesystem::is_empty(directory);
    }));
}

TEST_F(TableFilesTest, TablesThatOutgrowTheFileSystemSaySo) {
    if (!isRoot()) {
        GTEST_SKIP() << "needs root";
    }
    EXPECT_TRUE(isSoOnADiskOf("4m", [] {
        Tessel::TableWriter writer(TableMemory::sharedForWriting("lab"), twoTables);
        const std::string said = refusal([&] {
            for (std::uint32_t key = 0; key < 1'000'000; ++key) {
                writer.recordEntryIs(records, key, RecordKind::ipVia, Words{key, 7});
            }
        });
        return said.find("shared memory is full") != std::string::npos;
    }));
}

} // namespace TableFilesTest
