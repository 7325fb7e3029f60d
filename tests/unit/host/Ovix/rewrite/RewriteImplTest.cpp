#include "Ovix/rewrite/RewriteImpl.h"

#include <gtest/gtest.h>

#include "RewriteTesting.h"

namespace RewriteImplTest {

using namespace Ovix;
using namespace TestSupport;

namespace {

Ptr<CounterActionImpl> noAction(const Ptr<CounterActionInfo>&) {
    return nullptr;
}

} // namespace

TEST(RewriteInfoImplMap, KnowsOnlyWhatIsBound) {
    RewriteInfoImplMap map;
    EXPECT_EQ(map.rewriteFn(MplsSwapRewriteInfo::infoTypeName), nullptr);
    map.mapIs("MplsSwap", MplsSwapRewriteImpl::fromInfo);
    map.mapIs("MplsPop", MplsPopRewriteImpl::fromInfo);
    EXPECT_EQ(map.rewriteFn(MplsSwapRewriteInfo::infoTypeName), &MplsSwapRewriteImpl::fromInfo);
    EXPECT_EQ(map.rewriteFn(MplsPopRewriteInfo::infoTypeName), &MplsPopRewriteImpl::fromInfo);
    EXPECT_EQ(map.rewriteFn(MplsTtlRewriteInfo::infoTypeName), nullptr);
    EXPECT_EQ(map.rewriteFn(Tessel::TypeName("MplsSwa")), nullptr);
    EXPECT_EQ(map.rewriteFn(Tessel::TypeName("")), nullptr);
}

TEST(RewriteInfoImplMap, ALaterBindingReplacesTheEarlierOne) {
    RewriteInfoImplMap map;
    map.mapIs("MplsSwap", MplsPopRewriteImpl::fromInfo);
    map.mapIs("MplsSwap", MplsSwapRewriteImpl::fromInfo);
    EXPECT_EQ(map.rewriteFn(MplsSwapRewriteInfo::infoTypeName), &MplsSwapRewriteImpl::fromInfo);
}

TEST(RewriteInfoImplMap, RewritesAndCounterActionsDoNotShareNames) {
    RewriteInfoImplMap map;
    constexpr Tessel::TypeName name("MplsSwap");
    map.counterMapIs("MplsSwap", noAction);
    EXPECT_EQ(map.counterActionFn(name), &noAction);
    EXPECT_EQ(map.rewriteFn(name), nullptr);
}

TEST(MplsRewrites, TellTheirNamesAndTheirRecords) {
    const struct {
        Ptr<RewriteInfo> info;
        const char* infoName;
        const char* implName;
    } rows[] = {{swapTo({{1}}), "MplsSwap", "MplsSwapRewriteImpl"},
                {pop(), "MplsPop", "MplsPopRewriteImpl"},
                {push({{1}}), "MplsIpPush", "MplsIpPushRewriteImpl"},
                {age(), "MplsTtl", "MplsTtlRewriteImpl"}};
    for (const auto& row : rows) {
        EXPECT_EQ(row.info->typeName().text(), row.infoName);
        const auto impl = implOf(row.info);
        EXPECT_EQ(impl->name(), row.implName);
        EXPECT_EQ(impl->baseInfo(), row.info);
    }
}

TEST(MplsRewritesDeathTest, RefuseAnAbsentOrForeignRecord) {
    const RewriteInfoImplMap::RewriteFn makers[] = {
        MplsSwapRewriteImpl::fromInfo, MplsPopRewriteImpl::fromInfo,
        MplsIpPushRewriteImpl::fromInfo, MplsTtlRewriteImpl::fromInfo};
    const Ptr<RewriteInfo> foreign[] = {pop(), age(), swapTo({{1}}), push({{1}})};
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_DEATH(makers[i](nullptr), "info");
        EXPECT_DEATH(makers[i](foreign[i]), "info");
    }
}

} // namespace RewriteImplTest
