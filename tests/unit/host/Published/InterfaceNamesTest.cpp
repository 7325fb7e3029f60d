#include "Published/InterfaceNames.h"

#include "LocalTables.h"
#include "ShmTesting.h"

namespace InterfaceNamesTest {

namespace {

using namespace ShmTesting;
using Interface::Names;
using Interface::NamesWriter;
using Lumo::IntfId;
using Mpls::TableId;
using Tessel::TableMemory;

constexpr auto table = static_cast<std::size_t>(TableId::interfaceNames);

/// The names of tables under a name, whose writers come and go.
class InterfaceNames : public testing::Test {
  protected:
    InterfaceNames() { start(); }

    void start() {
        names.reset();
        writer.reset();
        writer.emplace(TableMemory::sharedForWriting(shared, enough), Mpls::tableDirectory);
        names.emplace(*writer, table);
    }
    Names read() {
        writer->commit();
        return Names::read(Tessel::TableReader(TableMemory::sharedForReading(shared)));
    }
    /// A record whose first word says the name's length, whatever it is.
    void recordIs(std::uint32_t place, std::uint64_t length, std::size_t words) {
        Words own(words, 0x7878787878787878);
        own[0] = length;
        writer->recordEntryIs(table, place, RecordKind::interfaceName, own);
    }

    SharedName shared;
    std::optional<Tessel::TableWriter> writer;
    std::optional<NamesWriter> names;
};

TEST_F(InterfaceNames, AreFoundByTheIdMadeOfThem) {
    const std::string longest(100, 'x');
    EXPECT_EQ(names->intfId("eth1"), IntfId("eth1"));
    EXPECT_EQ(names->intfId(longest), IntfId(longest));
    EXPECT_EQ(names->intfId("12345678"), IntfId("12345678"));
    const Names found = read();
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(found.name(IntfId("eth1")), "eth1");
    EXPECT_EQ(found.name(IntfId(longest)), longest);
    EXPECT_EQ(found.name(IntfId("12345678")), "12345678");
    EXPECT_EQ(found.name(IntfId("eth2")), "");
}

TEST_F(InterfaceNames, AreKeptOnceAndTheEmptyOneNotAtAll) {
    for (int i = 0; i < 3; ++i) {
        names->intfId("eth1");
        EXPECT_EQ(names->intfId(""), IntfId());
    }
    EXPECT_EQ(writer->entries(table), 1U);
    EXPECT_THROW(names->intfId(std::string(101, 'x')), Tessel::RangeError);
    EXPECT_EQ(read().size(), 1U);
}

TEST_F(InterfaceNames, AreTakenOverFromTheLastWriter) {
    names->intfId("eth1");
    names->intfId("eth2");
    writer->commit();
    start();
    names->intfId("eth2");
    EXPECT_FALSE(writer->changed());
    names->intfId("eth3");
    const Names found = read();
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(found.name(IntfId("eth1")), "eth1");
}

TEST_F(InterfaceNames, OfADiscardedBatchAreGone) {
    names->intfId("eth1");
    writer->commit();
    names->intfId("eth2");
    writer->discard();
    names->discard();
    EXPECT_EQ(read().size(), 1U);
    names->intfId("eth3");
    names->intfId("eth2");
    const Names found = read();
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(found.name(IntfId("eth2")), "eth2");
}

TEST_F(InterfaceNames, BehindOneThatWasDamagedStay) {
    for (const char* name : {"eth1", "eth2", "eth3", "eth4"}) {
        names->intfId(name);
    }
    writer->commit();
    wordsOf(writer->memory())[writer->entry(table, 1).unit() + 1] ^= 1U;
    EXPECT_EQ(read().size(), 3U);
    start();
    for (const char* name : {"eth5", "eth6", "eth7", "eth2"}) {
        names->intfId(name);
    }
    const Names found = read();
    EXPECT_EQ(found.size(), 7U);
    for (const char* name : {"eth1", "eth2", "eth3", "eth4", "eth5", "eth6", "eth7"}) {
        EXPECT_EQ(found.name(IntfId(name)), name);
    }
}

TEST_F(InterfaceNames, ThatAreDamagedAreLeftOut) {
    names->intfId("eth1");
    recordIs(1, 9, 2);    // longer than the record
    recordIs(2, 101, 14); // longer than a name
    recordIs(3, 104, 14);
    recordIs(4, ~std::uint64_t{0}, 14);
    recordIs(5, 1, 15); // larger than a record of a name
    writer->recordEntryIs(table, 6, RecordKind::interfaceName, Words());
    recordIs(7, 8, 2); // as it should be
    const Names found = read();
    EXPECT_EQ(found.size(), 2U);
    EXPECT_EQ(found.name(IntfId("xxxxxxxx")), "xxxxxxxx");
    EXPECT_NO_THROW(start());
    EXPECT_NO_THROW(names->intfId("eth2"));
    EXPECT_EQ(read().name(IntfId("eth2")), "eth2");
}

} // namespace

} // namespace InterfaceNamesTest
