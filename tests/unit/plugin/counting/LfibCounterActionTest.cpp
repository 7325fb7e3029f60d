#include "counting/LfibCounterAction.h"

#include "PluginFixture.h"

namespace LfibCounterActionTest {

namespace {

using namespace Ovix;
using TestSupport::mplsFrame;
using TestSupport::PluginFixture;
using TestSupport::udpPacket;

using Collection = Ptr<Counter::OvixLfibCounterCollection>;

class OtherAction : public CounterActionInfo {
  public:
    const Tessel::TypeName& typeName() const noexcept override { return name_; }

  private:
    Tessel::TypeName name_{"OtherAction"};
};

class LfibCounterAction : public PluginFixture {
  protected:
    ~LfibCounterAction() override {
        setStaticLfibCounterCollection(plugin->lfibCounterCollection());
    }
    static Ptr<LfibCounterActionInfo> infoOf(std::uint32_t label, std::uint32_t bytes) {
        return Tessel::make<LfibCounterActionInfo>(key(label), bytes);
    }
    static Collection named(const char* name) {
        return Tessel::make<Counter::OvixLfibCounterCollection>(name);
    }
    /// Packets and bytes of a label.
    static std::pair<std::uint64_t, std::uint64_t> countOf(const Collection& collection,
                                                           std::uint32_t label) {
        const Counter::PktCounter* counter = collection->counter(key(label));
        return counter != nullptr ? std::pair{counter->packets(), counter->bytes()}
                                  : std::pair<std::uint64_t, std::uint64_t>{};
    }
    using Count = std::pair<std::uint64_t, std::uint64_t>;
};

TEST_F(LfibCounterAction, CountsInTheCollectionItWasBuiltWith) {
    const auto other = named("other");
    for (const auto& action : {LfibCounterActionImpl::LfibCounterActionImplIs(other, infoOf(5, 60)),
                               lfibCounterActionImplFactory(other, infoOf(5, 70))}) {
        EXPECT_EQ(action->name(), "LfibCounterActionImpl");
        action->apply(nullptr);
    }
    EXPECT_EQ(countOf(other, 5), Count(2, 130));
    EXPECT_EQ(plugin->lfibCounterCollection()->size(), 0U);
}

TEST_F(LfibCounterAction, IsBuiltWithTheProcessWideCollectionOfTheMoment) {
    const auto before = LfibCounterActionImpl::fromInfo(infoOf(5, 60));
    const auto other = named("other");
    setStaticLfibCounterCollection(other);
    const auto after = LfibCounterActionImpl::fromInfo(infoOf(5, 70));
    before->apply(nullptr);
    after->apply(nullptr);
    EXPECT_EQ(countOf(plugin->lfibCounterCollection(), 5), Count(1, 60));
    EXPECT_EQ(countOf(other, 5), Count(1, 70));
}

TEST_F(LfibCounterAction, TheProcessWideCollectionIsHeldUntilReplaced) {
    const auto other = named("other");
    setStaticLfibCounterCollection(other);
    EXPECT_EQ(other->references(), 2U);
    setStaticLfibCounterCollection(plugin->lfibCounterCollection());
    EXPECT_EQ(other->references(), 1U);
}

TEST_F(LfibCounterAction, ActivationMakesThePluginsCollectionTheProcessWideOne) {
    setStaticLfibCounterCollection(named("other"));
    plugin->activeInit();
    LfibCounterActionImpl::fromInfo(infoOf(5, 60))->apply(nullptr);
    EXPECT_EQ(countOf(plugin->lfibCounterCollection(), 5), Count(1, 60));
}

TEST_F(LfibCounterAction, TheAgentBuildsItFromItsRecord) {
    const auto& map = RewriteInfoImplMapSharedObject::getMap(manager->sharedObjects());
    EXPECT_EQ(LfibCounterActionInfo::infoTypeName.text(), "LfibCounterActionInfo");
    EXPECT_EQ(map->counterActionFn(Tessel::TypeName("LfibCounterActionInfo")),
              &LfibCounterActionImpl::fromInfo);
}

TEST_F(LfibCounterAction, NothingIsCountedBeforeItIsApplied) {
    const auto action = LfibCounterActionImpl::fromInfo(infoOf(5, 60));
    EXPECT_EQ(plugin->lfibCounterCollection()->size(), 0U);
    action->apply(nullptr);
    EXPECT_EQ(plugin->lfibCounterCollection()->size(), 1U);
}

TEST_F(LfibCounterAction, TheLengthRecordedIsCountedWhateverTheFrameHasBecome) {
    const auto frame = contextOf(mplsFrame({{100}}, udpPacket(0x0a090001)));
    for (const std::uint32_t bytes : {0U, 60U, 0xffffffffU}) {
        LfibCounterActionImpl::fromInfo(infoOf(5, bytes))->apply(frame);
    }
    EXPECT_EQ(countOf(plugin->lfibCounterCollection(), 5), Count(3, 0xffffffffULL + 60));
    EXPECT_TRUE(counters->counters().empty());
}

TEST_F(LfibCounterAction, RefusesAnInfoOfAnotherKind) {
    const Ptr<CounterActionInfo> other = Tessel::make<OtherAction>();
    EXPECT_DEATH(LfibCounterActionImpl::fromInfo(other), "info");
}

} // namespace

} // namespace LfibCounterActionTest
