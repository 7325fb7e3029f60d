#include "Tables/TableMemory.h"

#include <fcntl.h>
#include <fstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>

#include "Refusal.h"
#include "ShmTesting.h"
#include "Tables/TableFiles.h"

namespace TableMemoryTest {

namespace {

using namespace ShmTesting;
using Tessel::TableMemory;
using Tessel::TablesBusy;
using Tessel::TableWriter;
using TestSupport::refusal;

/// What the system knows of the shared memory.
struct stat statusOf(const std::string& name) {
    struct stat found {};
    EXPECT_EQ(stat((Tessel::TableFiles::directory() + "/" + name).c_str(), &found), 0);
    return found;
}

/// How the page with this byte is mapped, as /proc tells: "rw-s".
std::string permissionsOf(const std::byte* at) {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const auto from = std::stoull(line, nullptr, 16);
        const auto to = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
        const auto byte = reinterpret_cast<std::uintptr_t>(at);
        if (byte >= from && byte < to) {
            return line.substr(line.find(' ') + 1, 4);
        }
    }
    return {};
}

TEST(TableMemory, ANameIsCheckedBeforeItIsUsed) {
    const std::vector<std::string> wrong = {
        "",   ".",   "..",  std::string(65, 'a'), "a/b",
        "/a", "a b", "a\n", "\xc3\xa4",           std::string("a\0b", 3)};
    for (const std::string& name : wrong) {
        EXPECT_THROW(TableMemory::sharedForWriting(name), std::invalid_argument) << name;
        EXPECT_THROW(TableMemory::sharedForReading(name), std::invalid_argument) << name;
        EXPECT_THROW(TableMemory::remove(name), std::invalid_argument) << name;
    }
    EXPECT_EQ(refusal([] { TableMemory::checkName("a/b"); }),
              "tables \"a/b\": a name is 1 to 64 letters, digits, '-', '_' and '.', which is not "
              "the first");
    EXPECT_NO_THROW(TableMemory::checkName(std::string(64, 'a')));
    EXPECT_NO_THROW(TableMemory::checkName("azAZ09-_."));
}

TEST(TableMemory, AnAbsentNameIsSaidAndNotMade) {
    const SharedName name;
    try {
        TableMemory::sharedForReading(name);
        FAIL();
    } catch (const std::system_error& refused) {
        EXPECT_EQ(refused.code(), std::errc::no_such_file_or_directory);
        EXPECT_NE(std::string(refused.what()).find("tables \"" + name.text() + "\""),
                  std::string::npos);
    }
    EXPECT_FALSE(TableMemory::remove(name));
}

TEST(TableMemory, MemoryNotYetWrittenIsNotRead) {
    const SharedName name;
    Tessel::TableFiles::openForWriting(name);
    EXPECT_NE(
        refusal([&] { TableMemory::sharedForReading(name); }).find("has not been written yet"),
        std::string::npos);
}

TEST(TableMemory, IsReadOnceItsTablesAreMadeToTheEnd) {
    const SharedName name;
    TableMemory made = TableMemory::sharedForWriting(name, enough);
    EXPECT_NE(
        refusal([&] { TableMemory::sharedForReading(name); }).find("has not been written yet"),
        std::string::npos);
    const TableWriter writer(std::move(made), twoTables);
    EXPECT_NO_THROW(TableMemory::sharedForReading(name));
}

TEST(TableMemory, IsReplacedOnceTheNextTablesAreMadeToTheEnd) {
    const SharedName name;
    const TableWriter former(TableMemory::sharedForWriting(name, enough), twoTables);
    const TableMemory reading = TableMemory::sharedForReading(name);
    EXPECT_TRUE(TableMemory::remove(name));
    TableMemory made = TableMemory::sharedForWriting(name, enough);
    EXPECT_EQ(reading.now(), TableMemory::Now::removed);
    const TableWriter writer(std::move(made), twoTables);
    EXPECT_EQ(reading.now(), TableMemory::Now::replaced);
}

TEST(TableMemory, IsSharedUnderItsNameAndKeepsItsSize) {
    const SharedName name;
    std::optional<TableMemory> writing(TableMemory::sharedForWriting(name, std::size_t{1} << 24U));
    ASSERT_TRUE(writing->ensure(4096));
    writing->bytes()[0] = std::byte{1}; // of finished tables
    const TableMemory reading = TableMemory::sharedForReading(name);
    writing->bytes()[4000] = std::byte{42};
    EXPECT_EQ(reading.bytes()[4000], std::byte{42});
    EXPECT_EQ(reading.bytes().size(), std::size_t{1} << 24U);
    EXPECT_EQ(reading.name(), name.text());
    writing.reset();
    writing.emplace(TableMemory::sharedForWriting(name, std::size_t{1} << 20U));
    EXPECT_EQ(writing->bytes().size(), std::size_t{1} << 24U);
    EXPECT_EQ(writing->bytes()[4000], std::byte{42});
}

TEST(TableMemory, IsWrittenByItsWriterAlone) {
    const SharedName name;
    TableMemory writing = TableMemory::sharedForWriting(name, 8192);
    ASSERT_TRUE(writing.ensure(8192));
    writing.bytes()[0] = std::byte{1}; // of finished tables
    TableMemory reading = TableMemory::sharedForReading(name);
    EXPECT_EQ(permissionsOf(writing.bytes().data()), "rw-s");
    EXPECT_EQ(permissionsOf(reading.bytes().data()), "r--s");
    EXPECT_FALSE(reading.ensure(4096));
    EXPECT_EQ(statusOf(name).st_mode & 0777U, 0640U);
}

TEST(TableMemory, OnlyWhatIsEnsuredExists) {
    const SharedName name;
    TableMemory memory = TableMemory::sharedForWriting(name, std::size_t{1} << 26U);
    const auto little = statusOf(name).st_blocks;
    EXPECT_GT(little, 0);
    EXPECT_LE(little * 512, 4 << 20);
    EXPECT_TRUE(memory.ensure(1)); // is there already
    EXPECT_EQ(statusOf(name).st_blocks, little);
    EXPECT_TRUE(memory.ensure(std::size_t{1} << 23U));
    EXPECT_GE(statusOf(name).st_blocks * 512, 1 << 23);
    EXPECT_FALSE(memory.ensure((std::size_t{1} << 26U) + 1));
}

TEST(TableMemory, OfTheProcessIsZeroAndEndsWhereItEnds) {
    TableMemory memory = TableMemory::ofProcess(8192);
    EXPECT_EQ(memory.name(), "");
    EXPECT_EQ(memory.bytes()[8191], std::byte{0});
    EXPECT_TRUE(memory.ensure(8192));
    EXPECT_FALSE(memory.ensure(8193));
    EXPECT_TRUE(TableMemory::none().bytes().empty());
}

TEST(TableMemory, MovesWithItsNameAndItsLock) {
    const SharedName name;
    TableMemory first = TableMemory::sharedForWriting(name, 8192);
    const std::byte* at = first.bytes().data();
    TableMemory second(std::move(first));
    EXPECT_EQ(second.bytes().data(), at);
    EXPECT_EQ(second.name(), name.text());
    EXPECT_THROW(TableMemory::sharedForWriting(name), TablesBusy);
    second = TableMemory::none();
    EXPECT_NO_THROW(TableMemory::sharedForWriting(name));
}

TEST(TableMemory, ARemovedNameLeavesTheMemoryToThoseWhoHaveIt) {
    const SharedName name;
    TableMemory old = TableMemory::sharedForWriting(name, 8192);
    ASSERT_TRUE(old.ensure(8192));
    old.bytes()[0] = std::byte{1}; // of finished tables
    const TableMemory reading = TableMemory::sharedForReading(name);
    EXPECT_TRUE(TableMemory::remove(name));
    EXPECT_THROW(TableMemory::sharedForReading(name), std::system_error);
    const TableMemory made = TableMemory::sharedForWriting(name, 8192); // another one
    old.bytes()[8] = std::byte{1};
    EXPECT_EQ(reading.bytes()[8], std::byte{1});
    EXPECT_EQ(made.bytes()[8], std::byte{0});
}

TEST(TableMemory, AnEmptyFileIsRefusedNamingTheRemedy) {
    const SharedName name;
    TableMemory::sharedForWriting(name, 8192);
    const std::string path = Tessel::TableFiles::directory() + "/" + name.text();
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_NE(refusal([&] {
                  TableMemory::sharedForWriting(name);
              }).find("a file that has been cut short; \"ovixctl tables repair\""),
              std::string::npos);
    EXPECT_EQ(statusOf(name).st_size, 0);
    TableMemory repaired = TableMemory::sharedForRepair(name, 8192);
    EXPECT_EQ(repaired.foundBytes(), 0U);
    EXPECT_EQ(repaired.bytes().size(), 8192U);
}

TEST(TableMemory, ASecondWriterIsRefusedNamingTheFirst) {
    const SharedName name;
    const TableWriter first(TableMemory::sharedForWriting(name, enough), twoTables);
    const std::string expected =
        "tables \"" + name.text() + "\" are being written by process " + std::to_string(getpid());
    EXPECT_EQ(refusal([&] { TableMemory::sharedForWriting(name); }), expected);
    Child second([&] {
        try {
            TableMemory::sharedForWriting(name);
        } catch (const TablesBusy& busy) {
            _exit(busy.what() == expected ? 7 : 8);
        }
    });
    EXPECT_EQ(WEXITSTATUS(second.wait()), 7);
}

TEST(TableMemory, AWriterThatHasNotSaidWhoItIsIsAnotherProcess) {
    const SharedName name;
    const TableMemory first = TableMemory::sharedForWriting(name, 8192);
    EXPECT_EQ(refusal([&] { TableMemory::sharedForWriting(name); }),
              "tables \"" + name.text() + "\" are being written by another process");
}

TEST(TableMemory, TheLockGoesWithAWriterThatIsKilled) {
    const SharedName name;
    const Signal holds;
    Child writer([&] {
        const TableWriter holding(TableMemory::sharedForWriting(name, enough), twoTables);
        holds.give();
        pause();
    });
    holds.await();
    EXPECT_EQ(refusal([&] { TableMemory::sharedForWriting(name); }),
              "tables \"" + name.text() + "\" are being written by process " +
                  std::to_string(writer.process()));
    writer.kill();
    EXPECT_NO_THROW(TableWriter(TableMemory::sharedForWriting(name), twoTables));
}

} // namespace

} // namespace TableMemoryTest
