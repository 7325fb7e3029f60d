#include "Ovix/trace/RoadNotes.h"

#include "MadeUpVias.h"

namespace RoadNotesTest {

namespace {

using namespace Ovix;
using namespace TestSupport;
using Texts = std::vector<std::string>;

/// Listens to what is noted about frames.
class NotesOfAFrame : public MadeUpViasFixture {
  protected:
    NotesOfAFrame() {
        RoadNotes::listenerIs([this](const RoadNote& note) { notes.push_back(textOf(note)); });
    }
    ~NotesOfAFrame() override { RoadNotes::listenerIs({}); }

    static std::string textOf(const RoadNote& note) {
        std::string text(note.step);
        for (const RoadNote::Field& field : note.fields) {
            text += " " + std::string(field.name) + "=" + field.value;
        }
        return text;
    }
    void send(const std::vector<TestSupport::Entry>& stack) {
        notes.clear();
        routeFrame(mplsFrame(stack, udpPacket(0x0a090001)));
    }
    static OvixMplsVia viaOn(const char* intf) {
        auto via = swapVia(300);
        via.intfId = Lumo::IntfId(intf);
        return via;
    }
    void adjacency(const std::vector<Mpls::WeightedRecord>& vias,
                   const std::vector<Mpls::WeightedRecord>& backups) {
        hardware->adjacencyIs(9, Mpls::Hardware::Adjacency::create(vias, backups, false));
    }
    /// What the hardware status is noted to have answered.
    std::string hardwareAnswer() {
        send({{100}});
        return notes.back();
    }

    Texts notes;
};

TEST_F(NotesOfAFrame, NameEveryTableAskedAndWhetherItHeldTheLabel) {
    swapRoute(pseudowire, 100, 300);
    send({{100}});
    EXPECT_EQ(notes, (Texts{"table table=decap label=100 found=no",
                            "table table=evpn-ethernet-segment-filter label=100 found=no",
                            "table table=pseudowire label=100 found=yes"}));
    send({{101}});
    EXPECT_EQ(notes, (Texts{"table table=decap label=101 found=no",
                            "table table=evpn-ethernet-segment-filter label=101 found=no",
                            "table table=pseudowire label=101 found=no",
                            "table table=evpn-etree-leaf-label label=101 found=no",
                            "table table=hardware label=101 found=no adjacency=0"}));
}

TEST_F(NotesOfAFrame, SayWhyTheProgrammedRouteIsUsableOrNot) {
    hardware->routeIs({key(100), 9, true});
    EXPECT_EQ(hardwareAnswer(), "table table=hardware label=100 found=unprogrammed adjacency=9");
    hardware->routeIs({key(100), 9, false});
    EXPECT_EQ(hardwareAnswer(), "table table=hardware label=100 found=no adjacency adjacency=9");
    adjacency({{viaOn("down"), 1}}, {});
    EXPECT_EQ(hardwareAnswer(), "table table=hardware label=100 found=no usable via adjacency=9");
    adjacency({{viaOn("down"), 1}}, {{viaOn("east"), 1}});
    EXPECT_EQ(hardwareAnswer(), "table table=hardware label=100 found=backups adjacency=9");
    adjacency({{viaOn("east"), 1}}, {});
    EXPECT_EQ(hardwareAnswer(), "table table=hardware label=100 found=yes adjacency=9");
}

TEST_F(NotesOfAFrame, NameTheViaThatTheHashChose) {
    const auto hasher = tellingHasher(7);
    const std::vector<Mpls::WeightedRecord> vias{
        {swapVia(300), 1}, {swapVia(301), 3}, {swapVia(302), 1}};
    writers[decap]->routeIs(key(100), Mpls::LfibViaType::ip, Mpls::LfibViaSetType::unicast, vias);
    send({{100}, {7}, {5000, 0}});
    EXPECT_EQ(notes.back(), "choice label=100 via=2 vias=3 hash=7 total=5 weights=1:3:1");
    hasher->value = 10;
    send({{100}, {7}, {5000, 0}});
    EXPECT_EQ(notes.back(), "choice label=100 via=1 vias=3 hash=10 total=5 weights=1:3:1");
    swapRoute(decap, 101, 300);
    send({{101}});
    EXPECT_EQ(notes, Texts{"table table=decap label=101 found=yes"}); // no choice to make
}

} // namespace

} // namespace RoadNotesTest
