#include "Tables/MappedFiles.h"

#include <csignal>
#include <sys/mman.h>
#include <unistd.h>

#include "ShmTesting.h"
#include "Tables/TableFiles.h"
#include "Tables/TableMemory.h"

namespace MappedFilesTest {

namespace {

using namespace ShmTesting;
using Tessel::CorruptionDetected;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableWriter;

void cut(const std::string& name, off_t bytes) {
    ASSERT_EQ(truncate((Tessel::TableFiles::directory() + "/" + name).c_str(), bytes), 0);
}

constexpr const char* cutShort = ": the file has been cut short";

} // namespace

TEST(MappedFiles, AReaderOfAFileThatIsCutShortNoticesIt) {
    for (const off_t bytes : {off_t{0}, off_t{4096}, off_t{100'000}}) {
        const SharedName name;
        TableWriter writer(TableMemory::sharedForWriting(name, enough), twoTables, longTime);
        for (std::uint32_t key = 0; key < 20'000; key += 100) {
            writer.recordEntryIs(records, key, RecordKind::ipVia, Words{key, 1, 2});
        }
        writer.commit();
        TableReader reader(TableMemory::sharedForReading(name));
        cut(name, bytes);
        const auto found = corruption([&] {
            for (std::uint32_t key = 0; key < 20'000; key += 100) {
                OneSet::recordOf(reader, key);
            }
        });
        EXPECT_EQ(found, name.text() + cutShort) << bytes;
        EXPECT_EQ(corruption([&] { reader.refresh(); }), name.text() + cutShort) << bytes;
        EXPECT_FALSE(reader.refresh()); // told once
    }
}

TEST(MappedFiles, AWriterOfAFileThatIsCutShortNoticesItWithTheNextCommit) {
    const SharedName name;
    TableWriter writer(TableMemory::sharedForWriting(name, enough), twoTables, longTime);
    writer.recordEntryIs(records, 5, RecordKind::ipVia, Words{1, 2});
    writer.commit();
    cut(name, 0);
    EXPECT_EQ(corruption([&] {
                  writer.recordEntryIs(records, 5, RecordKind::ipVia, Words{3, 4});
                  writer.commit();
              }),
              name.text() + cutShort);
}

TEST(MappedFiles, OnlyTheStretchThatIsLostBecomesZeros) {
    const SharedName one;
    const SharedName other;
    TableMemory first = TableMemory::sharedForWriting(one, 8192);
    TableMemory second = TableMemory::sharedForWriting(other, 8192);
    first.bytes()[8000] = second.bytes()[8000] = std::byte{42};
    cut(one, 4096);
    EXPECT_EQ(first.bytes()[8000], std::byte{0});
    EXPECT_TRUE(first.wasLost());
    EXPECT_EQ(second.bytes()[8000], std::byte{42});
    EXPECT_FALSE(second.wasLost());
    first = TableMemory::none();
    EXPECT_FALSE(first.wasLost());
}

TEST(MappedFiles, WhatIsSomebodyElsesStaysFatal) {
    const SharedName name;
    const TableMemory ours = TableMemory::sharedForWriting(name, 8192);
    Child child([] {
        const int file = memfd_create("test", MFD_CLOEXEC);
        const int sized = ftruncate(file, 4096);
        void* const mapped = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
        const int cutAgain = ftruncate(file, 0);
        _exit(sized + cutAgain + *static_cast<volatile char*>(mapped));
    });
    const int status = child.wait();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGBUS);
}

} // namespace MappedFilesTest
