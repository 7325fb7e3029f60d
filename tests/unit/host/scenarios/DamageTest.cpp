#include <algorithm>

#include "SmallTables.h"

namespace DamageTest {

namespace {

using namespace ShmTesting;
using namespace Tessel::TableLayout;
using Mpls::TableId;
using Answers = SmallTables::Answers;

/// A stretch of words, and what stands there.
struct Place {
    std::string what;
    std::size_t first;
    std::size_t count;
};

class Damage : public testing::Test {
  protected:
    Damage() : reader("tables", tables.bytes()) {}

    /// The own words of the record that `ref` names and its header.
    Place recordAt(const std::string& what, TableRef ref) const {
        return {what, ref.unit(), reader.headOf(ref, what).ownWords + std::size_t{1}};
    }
    TableRef entryOf(TableId table, std::uint32_t key) const {
        return reader.entry(static_cast<std::size_t>(table), key);
    }
    /// The via set of a label, and the vias behind it.
    Place routeAt(const std::string& what, std::uint32_t label) const {
        const TableRef ref = entryOf(TableId::transitLfib, label);
        return {what, ref.unit(), reader.headOf(ref, what).units};
    }
    Place directoryEntryOf(TableId table, std::uint32_t key) const {
        return {"directory entry",
                reader.root().tables[static_cast<std::size_t>(table)].directory +
                    2 * (key / pageEntries),
                1};
    }
    Place entryPlaceOf(TableId table, std::uint32_t key) const {
        return {"entry", reader.pageOf(static_cast<std::size_t>(table), key) + key % pageEntries,
                1};
    }

    /// Every other value that one damaged bit or byte gives the word.
    static std::vector<std::uint64_t> damagesOf(std::uint64_t word) {
        std::vector<std::uint64_t> damaged;
        for (unsigned bit = 0; bit < 64; ++bit) {
            damaged.push_back(word ^ (std::uint64_t{1} << bit));
        }
        for (unsigned byte = 0; byte < 8; ++byte) {
            const std::uint64_t mask = std::uint64_t{0xff} << (byte * 8);
            damaged.push_back(word & ~mask);
            damaged.push_back(word | mask);
        }
        std::erase(damaged, word);
        return damaged;
    }

    enum class Effect { found, none };

    /// Damages each word of the place in every way and reads everything: whatever is read is right
    /// or refused, and something is refused unless the damage may have no effect.
    void damage(const Place& place, Effect effect = Effect::found) {
        for (std::size_t at = place.first; at < place.first + place.count; ++at) {
            const std::uint64_t whole = tables.words[at];
            for (const std::uint64_t damaged : damagesOf(whole)) {
                tables.words[at] = damaged;
                ASSERT_EQ(refusals() > 0, effect == Effect::found)
                    << place.what << ", word " << at - place.first << ": " << std::hex << whole
                    << " became " << damaged;
                if (HasFailure()) {
                    return;
                }
            }
            tables.words[at] = whole;
        }
    }
    /// How many reads were refused; everything else must be right.
    std::size_t refusals() const {
        std::size_t found = 0;
        for (const auto& [what, answer] : tables.readAll()) {
            if (answer.rfind(SmallTables::refused, 0) == 0) {
                ++found;
            } else {
                const auto right = tables.readWhole().find(what);
                EXPECT_TRUE(right != tables.readWhole().end() && answer == right->second)
                    << what << ": " << answer;
            }
        }
        return found;
    }

    SmallTables tables;
    Tessel::TableReader reader;
};

TEST_F(Damage, NoneIsNone) {
    EXPECT_EQ(refusals(), 0U);
    EXPECT_GT(tables.readAll().size(), 15U);
}

TEST_F(Damage, OfTheHeaderIsFoundOnOpening) {
    damage({"magic, version, tables, size and check", 0, offsetof(TableHeader, writer) / 8});
    damage({"current", offsetof(TableHeader, current) / 8, 1});
    damage({"horizon", offsetof(TableHeader, horizon) / 8, 1});
    damage({"names", offsetof(TableHeader, names) / 8, maxTables * sizeof(TableName) / 8});
}

// What stands there means nothing to a reader.
TEST_F(Damage, OfWhatIsForMessagesOrForNothingHasNoEffect) {
    damage({"the last writer's process id", offsetof(TableHeader, writer) / 8, 1}, Effect::none);
    damage({"identity", offsetof(TableHeader, identity) / 8, 1}, Effect::none);
    damage({"between header and heap", sizeof(TableHeader) / 8, 3}, Effect::none);
    damage({"between header and heap", heapUnit - 3, 3}, Effect::none);
    // It says whether a page is worth comparing; the entries say what is right.
    Place madeIn = directoryEntryOf(TableId::transitLfib, SmallTables::ipLabel);
    ++madeIn.first;
    damage({"the generation that made a page", madeIn.first, 1}, Effect::none);
}

TEST_F(Damage, OfTheRootIsFoundOnOpening) {
    damage(recordAt("root", reader.current()));
}

TEST_F(Damage, OfARecordIsFoundOnReadingIt) {
    damage(routeAt("route of two IP vias", SmallTables::ipLabel));
    damage(routeAt("route of an IP lookup", SmallTables::lookupLabel));
    damage(routeAt("route of a tail and two vias", SmallTables::multicastLabel));
    damage(recordAt("adjacency", entryOf(TableId::hardwareAdjacencies, 5)));
    damage(recordAt("multicast VPN interface", entryOf(TableId::mvpnIntfStatus, SmallTables::vrf)));
    for (std::uint32_t i = 0; i < 3; ++i) {
        damage(recordAt("interface name", entryOf(TableId::interfaceNames, i)));
    }
}

TEST_F(Damage, OfWhatLeadsToARecordIsFoundOnReadingIt) {
    const std::vector<std::pair<TableId, std::uint32_t>> all = {
        {TableId::transitLfib, SmallTables::ipLabel},
        {TableId::transitLfib, SmallTables::lookupLabel},
        {TableId::transitLfib, SmallTables::multicastLabel},
        {TableId::transitLfib, 104}, // absent
        {TableId::hardwareRoutes, SmallTables::hardwareLabel},
        {TableId::hardwareRoutes, 104}, // absent
        {TableId::hardwareAdjacencies, 5},
        {TableId::mvpnIntfStatus, SmallTables::vrf},
        {TableId::mvpnIntfStatus, 8}, // absent
        {TableId::interfaceNames, 0},
    };
    for (const auto& [table, key] : all) {
        damage(entryPlaceOf(table, key));
        damage(directoryEntryOf(table, key));
    }
}

// An entry or a page of which nothing is left is one that is not there.
TEST_F(Damage, OfAWholeEntryMakesItAbsent) {
    const auto without = [&](const Place& place, const std::string& what) {
        tables.words[place.first] = 0;
        EXPECT_NE(tables.readAll()[what], tables.readWhole().at(what));
        EXPECT_EQ(tables.readAll()[what].rfind(SmallTables::refused, 0), std::string::npos);
        tables.repair();
    };
    without(entryPlaceOf(TableId::transitLfib, SmallTables::ipLabel), "route 100");
    without(directoryEntryOf(TableId::transitLfib, SmallTables::ipLabel), "route 100");
    without(entryPlaceOf(TableId::hardwareRoutes, SmallTables::hardwareLabel),
            "hardware route 103");
    without(entryPlaceOf(TableId::hardwareAdjacencies, 5), "adjacency");
    without(entryPlaceOf(TableId::mvpnIntfStatus, SmallTables::vrf), "vrf 7");
}

TEST_F(Damage, OfAnEntryThatIsNotThereIsFoundWhereverItIs) {
    const auto lfib = static_cast<std::size_t>(TableId::transitLfib);
    const auto routes = static_cast<std::size_t>(TableId::hardwareRoutes);
    const auto open = Tessel::make<Tessel::TableReader>("tables", tables.bytes());
    const Mpls::LfibStatus status(open, TableId::transitLfib);
    const Mpls::Hardware::Status hardware(open);
    const auto damageEach = [&](std::size_t from, const auto& readKey, std::uint32_t keyStep) {
        const std::uint32_t wordStep = keyStep == 1 ? 1 : 2;
        for (std::uint32_t i = 0; i < 1024; ++i) {
            std::uint64_t& word = tables.words[from + i * wordStep];
            const std::uint64_t whole = word;
            for (const unsigned bit : {i % 64, (i * 7 + 32) % 64, 63U}) {
                word = whole ^ (std::uint64_t{1} << bit);
                ASSERT_TRUE(corruption([&] { readKey(i * keyStep); })) << i << " " << bit;
            }
            word = whole;
        }
    };
    const auto readRoute = [&](std::uint32_t label) {
        status.viaSet(status.route(TableTesting::key(label)).viaSetKey);
    };
    const auto readHardware = [&](std::uint32_t label) {
        hardware.route(TableTesting::key(label));
    };
    damageEach(open->pageOf(lfib, 0), readRoute, 1);
    damageEach(open->root().tables[lfib].directory, readRoute, pageEntries);
    damageEach(open->pageOf(routes, 0), readHardware, 1);
    damageEach(open->root().tables[routes].directory, readHardware, pageEntries);
}

TEST_F(Damage, OfWhatChangesUnderAnOpenReaderIsFound) {
    Tessel::TableReader open("tables", tables.bytes());
    const auto table = static_cast<std::size_t>(TableId::transitLfib);
    for (const std::size_t at :
         {offsetof(TableHeader, current) / 8, offsetof(TableHeader, horizon) / 8}) {
        const std::uint64_t whole = tables.words[at];
        for (const std::uint64_t damaged : damagesOf(whole)) {
            tables.words[at] = damaged;
            const bool onRefresh = corruption([&] { open.refresh(); }).has_value();
            bool onReading = false;
            try {
                onReading = corruption([&] { open.entry(table, 100); }).has_value();
            } catch (const Tessel::SnapshotLost&) {
                ADD_FAILURE() << "lost by " << std::hex << damaged;
            }
            ASSERT_TRUE(onRefresh || onReading) << at << ": " << std::hex << damaged;
            tables.words[at] = whole;
            ASSERT_FALSE(corruption([&] { open.refresh(); }));
            ASSERT_TRUE(open.entry(table, 100));
        }
    }
}

TEST_F(Damage, LeavesNoTablesThatEndTooEarly) {
    const std::vector<std::uint64_t> whole = tables.words;
    for (const std::size_t size :
         {whole.size() - 1, std::size_t{reader.current().unit()} + rootWords,
          std::size_t{reader.current().unit()}, std::size_t{heapUnit}, std::size_t{8},
          std::size_t{1}}) {
        tables.words = whole;
        tables.words.resize(size);
        tables.words.shrink_to_fit();
        if (size > heapUnit) {
            tables.header().regionBytes = size * 8;
            tables.header().check = checkOf(tables.header());
        }
        EXPECT_GT(refusals(), 0U) << size;
    }
}

} // namespace

} // namespace DamageTest
