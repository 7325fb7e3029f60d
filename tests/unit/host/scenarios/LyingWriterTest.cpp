#include "SmallTables.h"

namespace LyingWriterTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Mpls::TableId;
using Mpls::Hardware::Adjacency;
using Tessel::RangeError;

/// Tables whose writer says what it likes: every check fits what it is a check of.
class LyingWriter : public testing::Test {
  protected:
    static constexpr auto transit = static_cast<std::size_t>(TableId::transitLfib);
    static constexpr auto adjacencies = static_cast<std::size_t>(TableId::hardwareAdjacencies);
    static constexpr auto mvpn = static_cast<std::size_t>(TableId::mvpnIntfStatus);

    std::unique_ptr<Tessel::TableReader> open() const {
        return std::make_unique<Tessel::TableReader>("tables", small.bytes());
    }
    std::string openingSays() const {
        return corruption([&] { open(); }).value_or("nothing");
    }

    /// Writes a record whose header says what it likes over what stands at `unit`.
    TableRef recordIs(std::uint32_t unit, RecordKind kind, std::uint16_t units,
                      std::uint16_t ownWords, const Words& own) {
        std::uint64_t hash = recordSeed(kind, unit, units, ownWords);
        for (std::size_t i = 0; i < own.size(); ++i) {
            small.words.at(unit + 1 + i) = own[i];
            hash = mix(hash, own[i]);
        }
        const RecordHeader head{static_cast<std::uint32_t>(hash), units, ownWords};
        small.words.at(unit) = head.word();
        return TableRef::of(unit, head.check);
    }
    template <typename Change>
    void rootIs(Change&& change) {
        Root root = small.root();
        change(root);
        Words own(rootWords);
        std::memcpy(own.data(), &root, sizeof root);
        small.header().current = recordIs(TableRef{small.header().current}.unit(), RecordKind::root,
                                          rootWords + 1, rootWords, own)
                                     .word;
    }
    void pageIs(std::uint32_t key, std::uint32_t unit) {
        const auto page = static_cast<std::uint32_t>(key / pageEntries);
        small.words.at(small.root().tables[transit].directory + 2 * page) =
            sealed(unit, pagePlace(transit, page)).word;
    }
    std::string readingSays(std::uint32_t key) const {
        const auto reader = open();
        return corruption([&] { reader->entry(transit, key); }).value_or("nothing");
    }
    static std::string isInvalid(const std::string& what, std::uint64_t at) {
        return "tables: " + what + " " + std::to_string(at) + " is invalid";
    }

    SmallTables small;
};

TEST_F(LyingWriter, ARootOfAnotherShapeIsRefused) {
    const TableRef current{small.header().current};
    Words own(rootWords, 0);
    std::memcpy(own.data(), &small.words[current.unit() + 1], own.size() * 8);
    for (const std::size_t ownWords : {rootWords - 1, rootWords + 1, std::size_t{0}}) {
        small.header().current = recordIs(current.unit(), RecordKind::root, rootWords + 1,
                                          static_cast<std::uint16_t>(ownWords), own)
                                     .word;
        EXPECT_EQ(openingSays(), isInvalid("root at unit", current.unit()));
    }
    small.header().current =
        recordIs(current.unit(), RecordKind::viaSet, rootWords + 1, rootWords, own).word;
    EXPECT_EQ(openingSays(), isInvalid("root at unit", current.unit()));
}

TEST_F(LyingWriter, ARootOutsideTheMemoryIsRefused) {
    const auto size = static_cast<std::uint32_t>(small.words.size());
    for (const std::uint32_t unit : {1U, heapUnit - 1, size - 1, size, 0xffffffffU,
                                     size - static_cast<std::uint32_t>(rootWords)}) {
        small.header().current = TableRef::of(unit, 1).word;
        EXPECT_EQ(openingSays(), isInvalid("root at unit", unit));
    }
}

TEST_F(LyingWriter, AHeapThatEndsOutsideTheMemoryIsRefused) {
    for (const std::uint64_t end :
         {small.words.size() + 1, std::uint64_t{1} << 32U, ~std::uint64_t{0}}) {
        rootIs([&](Root& root) { root.heapUnits = end; });
        EXPECT_NE(openingSays(), "nothing") << end;
        small.repair();
    }
}

TEST_F(LyingWriter, NothingIsReadBehindTheHeapsEnd) {
    const auto reader = open();
    const TableRef ref = reader->entry(transit, SmallTables::ipLabel);
    const std::uint64_t end = ref.unit() + reader->headOf(ref, "").units - 1U;
    rootIs([&](Root& root) {
        root.heapUnits = end;
        for (Root::Table& table : root.tables) {
            table = {};
        }
    });
    const Mpls::PublishedTables tables(Tessel::make<Tessel::TableReader>("tables", small.bytes()));
    EXPECT_EQ(corruption([&] { tables.lfib(TableId::transitLfib)->viaSet({ref.word}); }),
              isInvalid("via set at unit", ref.unit()));
}

TEST_F(LyingWriter, AGenerationBelowTheHorizonIsRefused) {
    const std::uint64_t horizon = small.header().horizon >> 16U;
    rootIs([&](Root& root) { root.generation = horizon; });
    EXPECT_EQ(openingSays(), "nothing");
    rootIs([&](Root& root) { root.generation = horizon - 1; });
    EXPECT_EQ(openingSays(), isInvalid("generation", horizon - 1));
    small.repair();
    small.header().horizon = sealedHorizon((std::uint64_t{1} << 48U) - 1);
    EXPECT_NE(openingSays(), "nothing");
}

TEST_F(LyingWriter, ADirectoryOutsideTheHeapIsRefused) {
    const auto end = static_cast<std::uint32_t>(small.words.size());
    for (const std::uint32_t unit : {1U, heapUnit - 1, end - 2047, end, 0xffffffffU}) {
        rootIs([&](Root& root) { root.tables[transit].directory = unit; });
        EXPECT_EQ(openingSays(), isInvalid("directory at unit", unit));
        small.repair();
    }
}

TEST_F(LyingWriter, APageOutsideTheHeapIsRefused) {
    const auto end = static_cast<std::uint32_t>(small.words.size());
    const std::uint32_t directory = small.root().tables[transit].directory;
    for (const std::uint32_t unit : {0U, 1U, heapUnit - 1, end - 1023, end, 0xffffffffU}) {
        for (const std::uint32_t key : {0U, 5000U, maxKey}) {
            pageIs(key, unit);
            EXPECT_EQ(readingSays(key),
                      isInvalid("page in directory at unit", directory + 2 * (key / pageEntries)));
        }
    }
    pageIs(maxKey, end - 1024);
    EXPECT_EQ(readingSays(maxKey), "nothing");
}

TEST_F(LyingWriter, APageOfAnotherPlaceIsRefused) {
    const std::uint32_t directory = small.root().tables[transit].directory;
    small.words.at(directory + 8) = small.words.at(directory);
    EXPECT_EQ(readingSays(5000), isInvalid("page in directory at unit", directory + 8));
}

TEST_F(LyingWriter, AHardwareRouteOfAnotherLabelIsRefused) {
    const auto table = static_cast<std::size_t>(TableId::hardwareRoutes);
    const std::uint32_t page = open()->pageOf(table, 0);
    small.words.at(page + 200) = small.words.at(page + SmallTables::hardwareLabel);
    const Mpls::Hardware::Status status(Tessel::make<Tessel::TableReader>("tables", small.bytes()));
    EXPECT_EQ(corruption([&] { status.route(TableTesting::key(200)); }),
              isInvalid("hardware route of label", 200));
}

TEST_F(LyingWriter, ARecordThatGoesOnOutsideItsRoomIsRefused) {
    const std::uint32_t unit = open()->entry(adjacencies, 5).unit();
    const auto end = static_cast<std::uint32_t>(small.words.size());
    struct Case {
        std::uint32_t unit;
        std::uint16_t units;
        std::uint16_t ownWords;
    };
    const std::vector<Case> cases = {
        {unit, 0, 0}, {unit, 1, 1},           {unit, 3, 3},    {unit, 3, 0xffff},
        {unit, 0, 3}, {unit, 0xffff, 0xfffe}, {end - 1, 2, 1}, {end - 1, 2, 0},
    };
    for (const Case& one : cases) {
        const TableRef ref = recordIs(one.unit, RecordKind::adjacency, one.units, one.ownWords, {});
        const auto reader = open();
        EXPECT_EQ(corruption([&] { Adjacency::read(*reader, ref); }),
                  isInvalid("adjacency at unit", one.unit))
            << one.units << " " << one.ownWords;
        small.repair();
    }
    const TableRef last = recordIs(end - 1, RecordKind::viaSet, 1, 0, {});
    EXPECT_EQ(open()->read(last, RecordKind::viaSet, {}, "record").size(), 0U);
}

TEST_F(LyingWriter, AnAdjacencyIsHeldToItsRecord) {
    const std::uint32_t unit = open()->entry(adjacencies, 5).unit();
    struct Case {
        std::uint64_t vias;
        std::uint64_t backups;
        Words entries;
        bool fits;
    };
    const std::vector<Case> cases = {
        {600, 0, Words(10), false},   {0, 600, Words(10), false},
        {599, 599, Words(10), false}, {6, 0, Words(10), false},
        {5, 1, Words(10), false},     {0xffff, 0xffff, Words(10), false},
        {5, 0, Words(10), true},      {2, 3, Words(10), true},
        {0, 0, Words(), true},        {1, 0, Words(1), false},
        {1, 0, {0, 0}, true},         {1, 0, {0, 25ULL << 32U}, false},
        {1, 0, {0, ~0ULL}, false},    {0, 1, {0, 25ULL << 32U}, false},
    };
    for (const Case& one : cases) {
        Words own{one.vias | one.backups << 16U};
        own.insert(own.end(), one.entries.begin(), one.entries.end());
        const auto count = static_cast<std::uint16_t>(own.size());
        const TableRef ref = recordIs(unit, RecordKind::adjacency,
                                      static_cast<std::uint16_t>(count + 1), count, own);
        const auto reader = open();
        EXPECT_EQ(corruption([&] { Adjacency::read(*reader, ref); }).value_or("nothing"),
                  one.fits ? "nothing" : isInvalid("adjacency at unit", unit))
            << one.vias << " " << one.backups;
        small.repair();
    }
    const TableRef none = recordIs(unit, RecordKind::adjacency, 1, 0, {});
    const auto reader = open();
    EXPECT_TRUE(corruption([&] { Adjacency::read(*reader, none); }));
}

TEST_F(LyingWriter, AnAdjacencysViaThatGoesOnBehindItsRecordIsInvalid) {
    const std::uint32_t unit = open()->entry(adjacencies, 5).unit();
    for (const std::uint64_t offset : {24U, 23U, 22U, 21U}) { // of 24 bytes
        const Words own{1, 0, 0xffULL | offset << 32U};
        const TableRef ref = recordIs(unit, RecordKind::adjacency, 4, 3, own);
        const auto adjacency = Adjacency::read(*open(), ref);
        EXPECT_FALSE(adjacency->via(false, 0)) << offset;
        small.repair();
    }
}

TEST_F(LyingWriter, AMulticastVpnEntryIsHeldToItsPlace) {
    Tessel::TableWriter writer(Tessel::TableMemory::ofProcess(enough), Mpls::tableDirectory);
    const auto entryIs = [&](std::uint32_t place, const Words& own) {
        writer.recordEntryIs(mvpn, place, RecordKind::mvpnIntf, own);
    };
    entryIs(10, {10});
    entryIs(20, {20, 1, 2});
    entryIs(30, {5000, 1});
    entryIs(40, {40, 1});
    writer.commit();
    const Routing::Multicast::MvpnIntfStatus status(
        Tessel::make<Tessel::TableReader>("tables", std::as_bytes(writer.memory())));
    for (const std::uint32_t vrf : {10U, 20U, 30U}) {
        EXPECT_TRUE(corruption([&] { status.vrfIntfId({vrf}); })) << vrf;
    }
    EXPECT_EQ(status.vrfIntfId({40}).intfId.value(), 1U);
}

TEST_F(LyingWriter, ATableWithoutAFreePlaceIsNotSearchedForEver) {
    Tessel::TableWriter writer(Tessel::TableMemory::ofProcess(std::size_t{64} << 20U),
                               Mpls::tableDirectory);
    TableRef ref;
    for (std::uint32_t place = 0; place <= maxKey; ++place) {
        if (place % pageEntries == 0) { // one for all that are near enough to its home
            const Words own{place, 1};
            ref = writer.recordIs(writer.take(3), RecordKind::mvpnIntf, own);
        }
        writer.entryIs(mvpn, place, ref);
    }
    writer.commit();
    const Routing::Multicast::MvpnIntfStatus status(
        Tessel::make<Tessel::TableReader>("tables", std::as_bytes(writer.memory())));
    Child child([&] {
        alarm(5);
        try {
            _exit(status.vrfIntfId({5}) == Routing::Multicast::MvpnVrfIntfId() ? 7 : 8);
        } catch (const Tessel::CorruptionDetected&) {
            _exit(7);
        }
    });
    EXPECT_EQ(WEXITSTATUS(child.wait()), 7);
}

} // namespace

} // namespace LyingWriterTest
