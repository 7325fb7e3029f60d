#include "Mpls/LfibStatus.h"

#include <cstring>

#include "Mpls/LfibLayout.h"
#include "Mpls/LfibWriter.h"
#include "Mpls/PackedVia.h"
#include "Refusal.h"
#include "TableTesting.h"
#include "Tessel/Exceptions.h"

namespace LfibStatusTest {

namespace {

using namespace TableTesting;
using namespace Mpls;
using LfibLayout::ViaSetWord;
using Tessel::CorruptionDetected;
using Tessel::RecordKind;
using Tessel::TableRef;
using Words = std::vector<std::uint64_t>;

/// What reading said, or nothing when it did not complain.
template <typename Action>
std::string corruption(Action&& action) {
    return TestSupport::refusal<CorruptionDetected>(action);
}

std::string isInvalid(const std::string& what, std::uint32_t at) {
    return "tables: " + what + " " + std::to_string(at) + " is invalid";
}

/// An LFIB whose writer says what it likes: every check fits what it is a check of.
class LyingLfib : public testing::Test {
  protected:
    TableRef recordIs(RecordKind kind, const Words& own) {
        const TableRef ref = tables.recordIs(tables.take(1 + own.size()), kind, own);
        commit();
        return ref;
    }
    void commit() {
        tables.commit();
        reader->refresh();
    }
    LfibViaSetKey viaSetIs(const Words& own) { return {recordIs(RecordKind::viaSet, own).word}; }
    /// A via set that says so many entries in a record of `words`.
    LfibViaSetKey viaSetIs(std::size_t viaKeys, std::size_t members, std::size_t words) {
        const ViaSetWord fixed{
            1, 0, 0, 0, static_cast<std::uint16_t>(viaKeys), static_cast<std::uint16_t>(members)};
        Words own(words);
        std::memcpy(own.data(), &fixed, sizeof fixed);
        return viaSetIs(own);
    }
    static LfibViaKey viaKey(TableRef ref) { return {0, {}, 0, ref.unit(), ref.check()}; }
    static LfibWeightedVia member(TableRef ref) { return {ref.unit(), 1, ref.check()}; }

    Tessel::TableWriter tables{Tessel::TableMemory::ofProcess(std::size_t{4} << 20U),
                               tableDirectory};
    Ptr<Tessel::TableReader> reader =
        Tessel::make<Tessel::TableReader>("tables", std::as_bytes(tables.memory()));
    Ptr<LfibStatus> lfib = Tessel::make<LfibStatus>(reader, TableId::transitLfib);
};

TEST_F(LyingLfib, AListOf600EntriesIsOutOfRange) {
    for (const std::size_t count : {600U, 0xffffU}) {
        for (const std::size_t words : {std::size_t{1}, LfibLayout::maxViaSetWords}) {
            EXPECT_THROW(lfib->viaSet(viaSetIs(count, 0, words)), Tessel::RangeError);
            EXPECT_THROW(lfib->viaSet(viaSetIs(0, count, words)), Tessel::RangeError);
            EXPECT_THROW(lfib->viaSet(viaSetIs(count, count, words)), Tessel::RangeError);
        }
    }
    EXPECT_EQ(lfib->corruptionsDetected(), 0U);
}

TEST_F(LyingLfib, TheLargestListsAreRead) {
    const LfibViaSet set = lfib->viaSet(viaSetIs(599, 599, LfibLayout::maxViaSetWords));
    EXPECT_EQ(set.viaKeys.size(), 599U);
    EXPECT_EQ(set.members.size(), 599U);
}

TEST_F(LyingLfib, ListsEndWithinTheirRecord) {
    struct Case {
        std::size_t viaKeys;
        std::size_t members;
        std::size_t words;
        bool fits;
    };
    const std::vector<Case> cases = {
        {0, 0, 1, true},    {1, 0, 2, false},     {1, 0, 3, true},    {0, 1, 2, false},
        {1, 1, 4, true},    {2, 1, 5, false},     {2, 1, 6, true},    {599, 0, 4, false},
        {0, 599, 4, false}, {599, 599, 1, false}, {1, 599, 4, false}, {599, 599, 1797, false},
    };
    for (const Case& one : cases) {
        const LfibViaSetKey set = viaSetIs(one.viaKeys, one.members, one.words);
        EXPECT_EQ(corruption([&] { lfib->viaSet(set); }),
                  one.fits ? "" : isInvalid("via set lists at unit", TableRef{set.value}.unit()))
            << one.viaKeys << " " << one.members << " " << one.words;
    }
}

TEST_F(LyingLfib, ARecordTooSmallOrTooLargeForItsKindIsNone) {
    for (const std::size_t words : {std::size_t{0}, LfibLayout::maxViaSetWords + 1}) {
        const LfibViaSetKey set = viaSetIs(Words(words));
        EXPECT_EQ(corruption([&] { lfib->viaSet(set); }),
                  isInvalid("via set at unit", TableRef{set.value}.unit()));
    }
    for (const std::size_t words : {std::size_t{0}, LfibLayout::maxViaWords + 1}) {
        const TableRef lookup = recordIs(RecordKind::ipLookupVia, Words(words));
        EXPECT_NE(corruption([&] { lfib->ipLookupVia(viaKey(lookup)); }), "");
        const TableRef tail = recordIs(RecordKind::multicastVia, Words(words));
        EXPECT_NE(corruption([&] { lfib->multicastIpLookupVia(viaKey(tail)); }), "");
        const TableRef ip = recordIs(RecordKind::ipVia, Words(words));
        EXPECT_FALSE(lfib->ipVia(member(ip)));
    }
    EXPECT_EQ(lfib->corruptionsDetected(), 2U);
    const TableRef tail = recordIs(RecordKind::multicastVia, Words(2));
    EXPECT_EQ(corruption([&] { lfib->multicastIpLookupVia(viaKey(tail)); }),
              isInvalid("multicast IP lookup via at unit", tail.unit()));
}

TEST_F(LyingLfib, AVrfNameEndsWithinItsRecordAndAt100Bytes) {
    struct Case {
        std::uint8_t length;
        std::size_t words;
        bool fits;
    };
    const std::vector<Case> cases = {{0, 1, true},     {6, 1, true},     {7, 1, false},
                                     {100, 13, true},  {100, 12, false}, {101, 13, false},
                                     {102, 13, false}, {255, 40, false}};
    for (const Case& one : cases) {
        Words own(one.words, 0x7676767676767676);
        auto* bytes = reinterpret_cast<std::uint8_t*>(own.data());
        bytes[0] = static_cast<std::uint8_t>(PayloadType::ipv4);
        bytes[1] = one.length;
        const TableRef ref = recordIs(RecordKind::ipLookupVia, own);
        if (one.fits) {
            EXPECT_EQ(lfib->ipLookupVia(viaKey(ref)).vrfName.view(), std::string(one.length, 'v'));
        } else {
            EXPECT_EQ(corruption([&] { lfib->ipLookupVia(viaKey(ref)); }),
                      isInvalid("VRF name of IP lookup via at unit", ref.unit()))
                << one.length << " " << one.words;
        }
    }
}

TEST_F(LyingLfib, AnIpViaWhoseFieldsGoOnBehindItsRecordIsInvalidAndReported) {
    const PackedVia packed(swapVia().via);
    Words own((packed.bytes().size() + 7) / 8);
    std::memcpy(own.data(), packed.bytes().data(), packed.bytes().size());
    EXPECT_TRUE(lfib->ipVia(member(recordIs(RecordKind::ipVia, own))).isEq(swapVia().via));
    own.pop_back();
    const TableRef cut = recordIs(RecordKind::ipVia, own);
    EXPECT_FALSE(lfib->ipVia(member(cut)));
    EXPECT_EQ(lfib->lastCorruption(), isInvalid("fields of IP via at unit", cut.unit()));
    EXPECT_EQ(lfib->corruptionsDetected(), 1U);
}

TEST_F(LyingLfib, ARecordOfAnotherKindIsNotTakenForOne) {
    const Words own(3);
    const TableRef set = recordIs(RecordKind::viaSet, own);
    const TableRef ip = recordIs(RecordKind::ipVia, own);
    const TableRef lookup = recordIs(RecordKind::ipLookupVia, own);
    const TableRef tail = recordIs(RecordKind::multicastVia, own);
    for (const TableRef ref : {ip, lookup, tail}) {
        EXPECT_NE(corruption([&] { lfib->viaSet({ref.word}); }), "");
    }
    for (const TableRef ref : {set, ip, tail}) {
        EXPECT_NE(corruption([&] { lfib->ipLookupVia(viaKey(ref)); }), "");
    }
    for (const TableRef ref : {set, ip, lookup}) {
        EXPECT_NE(corruption([&] { lfib->multicastIpLookupVia(viaKey(ref)); }), "");
    }
    EXPECT_EQ(lfib->corruptionsDetected(), 0U);
    for (const TableRef ref : {set, lookup, tail}) {
        EXPECT_FALSE(lfib->ipVia(member(ref)));
        EXPECT_EQ(lfib->lastCorruption(), isInvalid("IP via at unit", ref.unit()));
    }
    EXPECT_EQ(lfib->corruptionsDetected(), 3U);
}

TEST_F(LyingLfib, NoReferenceLeadsOutOfTheHeap) {
    const auto end = static_cast<std::uint32_t>(reader->root().heapUnits);
    for (const std::uint32_t unit : {0U, 1U, Tessel::TableLayout::heapUnit - 1, end - 1, end,
                                     end + 1, 0x7fffffffU, 0xffffffffU}) {
        const TableRef ref = TableRef::of(unit, 1);
        EXPECT_EQ(corruption([&] { lfib->viaSet({ref.word}); }),
                  isInvalid("via set at unit", unit));
        EXPECT_EQ(corruption([&] { lfib->ipLookupVia(viaKey(ref)); }),
                  isInvalid("IP lookup via at unit", unit));
        EXPECT_EQ(corruption([&] { lfib->multicastIpLookupVia(viaKey(ref)); }),
                  isInvalid("multicast IP lookup via at unit", unit));
        EXPECT_FALSE(lfib->ipVia(member(ref)));
        EXPECT_EQ(lfib->lastCorruption(), isInvalid("IP via at unit", unit));
    }
}

TEST_F(LyingLfib, TheHookCountsReportsAndKeepsTheLast) {
    EXPECT_EQ(lfib->name(), "mpls/transitLfib");
    lfib->doCorruptionDetected("torn");
    lfib->doCorruptionDetected("torn again");
    EXPECT_EQ(lfib->corruptionsDetected(), 2U);
    EXPECT_EQ(lfib->lastCorruption(), "torn again");
}

} // namespace

} // namespace LfibStatusTest
