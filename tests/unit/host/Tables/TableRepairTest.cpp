#include "Tables/TableRepair.h"

#include <unistd.h>

#include "ShmTesting.h"
#include "Tables/TableFiles.h"

namespace TableRepairTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Tessel::CorruptionDetected;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableRepair;
using Tessel::TableWriter;

using Findings = std::vector<std::string>;

/// Tables of three generations, each with a record more than the one before.
class TableRepairTest : public testing::Test {
  protected:
    TableRepairTest() {
        TableWriter writer(TableMemory::sharedForWriting(name, enough), twoTables, longTime);
        for (std::uint32_t key = 1; key <= 2; ++key) {
            writer.recordEntryIs(records, key, RecordKind::ipVia, Words{key, 7});
            writer.commit();
        }
    }

    /// Changes the memory as no writer would.
    template <typename Damage>
    void damage(Damage&& damage) const {
        const TableMemory memory = TableMemory::sharedForWriting(name);
        damage(headerOf(memory.bytes()), wordsOf(memory.bytes()));
    }
    Findings repair() const {
        TableMemory memory = TableMemory::sharedForRepair(name, enough);
        return TableRepair(memory, twoTables).findings();
    }
    bool isRefused() const {
        return corruption([&] { take(); }).has_value();
    }
    /// The keys that a writer finds when it takes the tables over.
    std::vector<std::uint32_t> take() const {
        const TableWriter writer(TableMemory::sharedForWriting(name), twoTables, longTime);
        std::vector<std::uint32_t> keys;
        for (std::uint32_t key = 0; key < 10; ++key) {
            if (writer.entry(records, key)) {
                keys.push_back(key);
            }
        }
        return keys;
    }

    const SharedName name;
    const std::vector<std::uint32_t> all{1, 2};
};

} // namespace

TEST_F(TableRepairTest, NothingIsDoneWhereNothingIsWrong) {
    EXPECT_EQ(repair(), Findings());
    EXPECT_EQ(take(), all);
}

TEST_F(TableRepairTest, AHeaderThatIsDamagedAnywhereLosesNothing) {
    for (std::size_t word = 0; word < sizeof(TableHeader) / 8; ++word) {
        if (word == offsetof(TableHeader, writer) / 8 ||
            word == offsetof(TableHeader, identity) / 8) {
            continue;
        }
        damage([&](TableHeader&, std::uint64_t* words) { words[word] ^= 0x100000; });
        EXPECT_TRUE(isRefused()) << word;
        EXPECT_EQ(repair().size(), 1U) << word;
        EXPECT_EQ(take(), all) << word;
    }
}

TEST_F(TableRepairTest, ANewestGenerationThatIsDamagedLosesItsChanges) {
    std::uint64_t generation = 0;
    damage([&](TableHeader& header, std::uint64_t* words) {
        std::uint64_t* root = words + Tessel::TableRef{header.current}.unit();
        generation = root[1];
        root[3] ^= 1;
    });
    EXPECT_TRUE(isRefused());
    EXPECT_EQ(repair(), Findings{"the current generation was damaged; generation " +
                                 std::to_string(generation - 1) +
                                 " is the newest that is whole, and changes after it are lost"});
    EXPECT_EQ(take(), std::vector<std::uint32_t>{1});
}

TEST_F(TableRepairTest, WhereNoGenerationIsLeftTheTablesBeginAnew) {
    damage([&](TableHeader& header, std::uint64_t* words) {
        std::fill(words + heapUnit, words + heapUnit + 100'000, 0);
        header.horizon = 1;
    });
    EXPECT_EQ(repair(), (Findings{"the horizon was damaged; it is made anew",
                                  "no generation is whole; all entries are lost"}));
    EXPECT_EQ(take(), std::vector<std::uint32_t>());
}

TEST_F(TableRepairTest, AFileThatWasCutShortGetsItsSizeBack) {
    const std::string path = Tessel::TableFiles::directory() + "/" + name.text();
    ASSERT_EQ(truncate(path.c_str(), 4096), 0);
    EXPECT_TRUE(isRefused());
    EXPECT_EQ(repair(),
              (Findings{"the file had been cut short to 4096 bytes; it has its size again",
                        "no generation is whole; all entries are lost"}));
    EXPECT_EQ(take(), std::vector<std::uint32_t>());
    ASSERT_EQ(truncate(path.c_str(), 100), 0);
    EXPECT_THROW(TableMemory::sharedForWriting(name), std::system_error);
    EXPECT_EQ(repair().size(), 3U); // size, header and generation
    EXPECT_EQ(take(), std::vector<std::uint32_t>());
}

TEST_F(TableRepairTest, AFileCutBehindItsDataLosesNothingAndIsSaid) {
    const std::string path = Tessel::TableFiles::directory() + "/" + name.text();
    ASSERT_EQ(truncate(path.c_str(), 1 << 20), 0);
    EXPECT_EQ(repair(),
              Findings{"the file had been cut short to 1048576 bytes; it has its size again"});
    EXPECT_EQ(take(), all);
    EXPECT_EQ(repair(), Findings());
}

// What was made after the generation that has come back is made once more, and differs.
TEST_F(TableRepairTest, TablesThatHaveLostChangesHaveAnotherIdentity) {
    const auto reader = Tessel::make<TableReader>(TableMemory::sharedForReading(name));
    const std::uint64_t before = reader->identity();
    EXPECT_EQ(repair(), Findings());
    take();
    reader->refresh();
    EXPECT_EQ(reader->identity(), before);
    damage([&](TableHeader& header, std::uint64_t* words) {
        words[Tessel::TableRef{header.current}.unit() + 3] ^= 1;
    });
    EXPECT_EQ(repair().size(), 1U);
    reader->refresh();
    EXPECT_NE(reader->identity(), before);
}

TEST_F(TableRepairTest, AReaderGoesOnWithARepairedHeader) {
    const auto reader = Tessel::make<TableReader>(TableMemory::sharedForReading(name));
    damage([&](TableHeader& header, std::uint64_t*) { header.horizon = 12345; });
    EXPECT_TRUE(corruption([&] { OneSet::recordOf(*reader, 1); }).has_value());
    repair();
    EXPECT_EQ(OneSet::recordOf(*reader, 1), (Words{1, 7}));
}

TEST_F(TableRepairTest, UndamagedTablesOfAnotherVersionStay) {
    damage([&](TableHeader& header, std::uint64_t*) {
        header.version = 99;
        header.check = checkOf(header);
    });
    EXPECT_EQ(corruption([&] { repair(); }), name.text() + ": the tables are of another version");
}

TEST_F(TableRepairTest, TablesThatAreNotThereAreNotMade) {
    EXPECT_TRUE(TableMemory::remove(name));
    EXPECT_THROW(repair(), std::system_error);
    EXPECT_FALSE(TableMemory::remove(name));
}

} // namespace TableRepairTest
