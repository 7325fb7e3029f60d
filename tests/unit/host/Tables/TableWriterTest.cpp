#include "Tables/TableWriter.h"

#include <stdexcept>

#include "ShmTesting.h"

namespace TableWriterTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Tessel::TableDescription;
using Tessel::TableMemory;
using Tessel::TableReader;
using Tessel::TableWriter;

class Writer : public testing::Test, public OneSet {
  protected:
    std::vector<std::uint32_t> keys(std::size_t table) const {
        std::vector<std::uint32_t> found;
        reader->forEach(table, [&](std::uint32_t key, TableRef) { found.push_back(key); });
        return found;
    }
};

class SmallWriter : public testing::Test, public OneSet {
  protected:
    SmallWriter() : OneSet(longTime, std::size_t{1} << 17U) {}
};

TEST_F(Writer, ABatchIsVisibleAllAtOnceWhenItIsCommitted) {
    const std::uint64_t first = reader->generation();
    recordIs(1, {11});
    recordIs(2000, {22, 23});
    valueIs(5, 55);
    EXPECT_TRUE(writer.changed());
    EXPECT_EQ(writer.entries(records), 2U);
    EXPECT_FALSE(reader->refresh());
    EXPECT_EQ(record(1), Words());
    EXPECT_EQ(value(5), 0U);
    writer.commit();
    EXPECT_FALSE(writer.changed());
    EXPECT_EQ(writer.generation(), first + 1);
    EXPECT_EQ(record(1), Words()); // not before the reader goes over to it
    EXPECT_TRUE(reader->refresh());
    EXPECT_EQ(reader->generation(), first + 1);
    EXPECT_EQ(record(1), Words{11});
    EXPECT_EQ(record(2000), (Words{22, 23}));
    EXPECT_EQ(value(5), 55U);
    EXPECT_EQ(reader->entries(records), 2U);
    EXPECT_EQ(reader->entries(values), 1U);
}

TEST_F(Writer, NoChangeIsNoGeneration) {
    recordIs(1, {11});
    valueIs(5, 55);
    commit();
    const std::uint64_t generation = writer.generation();
    writer.commit();
    recordIs(1, {11});
    valueIs(5, 55);
    EXPECT_FALSE(writer.recordEntryDel(records, 2));
    writer.entryIs(values, 6, {});
    EXPECT_FALSE(writer.changed());
    writer.commit();
    EXPECT_EQ(writer.generation(), generation);
}

TEST_F(Writer, ADiscardedBatchLeavesNothing) {
    recordIs(1, {11});
    recordIs(2, {22});
    commit();
    const std::size_t used = writer.usedBytes();
    const std::uint64_t generation = writer.generation();
    for (int round = 0; round < 3; ++round) {
        recordIs(1, {12, 13});
        recordIs(5000, {55});
        writer.recordEntryDel(records, 2);
        valueIs(5, 55);
        writer.discard();
        EXPECT_FALSE(writer.changed());
        EXPECT_EQ(writer.usedBytes(), used);
        EXPECT_EQ(writer.entries(records), 2U);
        EXPECT_EQ(writer.entries(values), 0U);
        EXPECT_EQ(writer.entry(records, 5000), TableRef());
        writer.commit();
        EXPECT_EQ(writer.generation(), generation);
    }
    recordIs(3, {33});
    commit();
    EXPECT_EQ(record(1), Words{11});
    EXPECT_EQ(record(2), Words{22});
    EXPECT_EQ(keys(records), (std::vector<std::uint32_t>{1, 2, 3}));
}

TEST_F(Writer, KeysGoUpToTheLargestAndNoFurther) {
    recordIs(0, {1});
    recordIs(maxKey, {2});
    commit();
    EXPECT_EQ(record(0), Words{1});
    EXPECT_EQ(record(maxKey), Words{2});
    EXPECT_EQ(keys(records), (std::vector<std::uint32_t>{0, maxKey}));
    const std::size_t used = writer.usedBytes();
    EXPECT_THROW(recordIs(maxKey + 1, {3}), std::invalid_argument);
    EXPECT_THROW(valueIs(0xffffffff, 3), std::invalid_argument);
    EXPECT_EQ(writer.entry(records, maxKey + 1), TableRef());
    EXPECT_FALSE(writer.recordEntryDel(records, maxKey + 1));
    EXPECT_EQ(writer.usedBytes(), used);
}

TEST_F(Writer, CountsEntriesAsTheyComeAndGo) {
    for (std::uint32_t key = 0; key < 3000; ++key) {
        recordIs(key, {key});
        recordIs(key, {key, key});
    }
    EXPECT_EQ(writer.entries(records), 3000U);
    for (std::uint32_t key = 0; key < 3000; key += 2) {
        EXPECT_TRUE(writer.recordEntryDel(records, key));
        EXPECT_FALSE(writer.recordEntryDel(records, key));
    }
    commit();
    EXPECT_EQ(reader->entries(records), 1500U);
    EXPECT_EQ(keys(records).size(), 1500U);
}

TEST_F(Writer, ARecordHasAtMost65535Units) {
    recordIs(1, Words(65534, 7));
    EXPECT_THROW(recordIs(2, Words(65535, 7)), std::length_error);
    commit();
    Words own(65534);
    EXPECT_EQ(reader->read(reader->entry(records, 1), RecordKind::ipVia, own, "record").back(), 7U);
}

TEST_F(SmallWriter, FullTablesKeepWhatTheyHaveAndTakeMoreWhenThereIsRoomAgain) {
    std::uint32_t key = 0;
    const auto fill = [&] {
        for (;; ++key) {
            recordIs(key, Words(50, key));
            commit();
        }
    };
    EXPECT_THROW(fill(), std::length_error);
    EXPECT_GT(key, 50U);
    writer.discard();
    for (std::uint32_t i = 0; i < key; ++i) {
        ASSERT_EQ(record(i), Words(50, i));
    }
    EXPECT_EQ(reader->entries(records), key);
    for (const std::uint32_t gone : {3U, 7U}) {
        EXPECT_TRUE(writer.recordEntryDel(records, gone));
        commit();
        EXPECT_EQ(record(gone), Words());
    }
    recordIs(3, Words(50, 3));
    commit();
    EXPECT_EQ(record(3), Words(50, 3));
}

TEST_F(SmallWriter, ABatchThatDoesNotFitLeavesTheTablesAsTheyWere) {
    recordIs(1, {11});
    commit();
    const std::size_t used = writer.usedBytes();
    for (int round = 0; round < 5; ++round) {
        std::uint32_t key = 2;
        EXPECT_THROW(
            for (;; ++key) { recordIs(key * 100, Words(100)); }, std::length_error);
        writer.discard();
        ASSERT_EQ(writer.usedBytes(), used);
    }
    recordIs(2, {22});
    commit();
    EXPECT_EQ(record(1), Words{11});
    EXPECT_EQ(record(2), Words{22});
}

TEST(WriterSize, AMillionEntriesHaveRoom) {
    OneSet set(longTime, TableMemory::defaultBytes);
    const std::size_t empty = set.writer.usedBytes();
    for (std::uint32_t key = 0; key <= maxKey; ++key) {
        const std::array<std::uint64_t, 4> own{key, 0, 0, ~std::uint64_t{key}};
        set.writer.recordEntryIs(records, key, RecordKind::ipVia, own);
    }
    const std::uint64_t before = set.reader->generation();
    EXPECT_EQ(set.reader->entries(records), 0U);
    set.commit();
    EXPECT_EQ(set.reader->generation(), before + 1);
    EXPECT_EQ(set.reader->entries(records), 1048576U);
    for (std::uint32_t key = 0; key <= maxKey; key += 1021) {
        ASSERT_EQ(set.record(key), (Words{key, 0, 0, ~std::uint64_t{key}}));
    }
    EXPECT_LE((set.writer.usedBytes() - empty) / 1048576, 5 * 8 + 8 + 1U);
}

} // namespace

} // namespace TableWriterTest
