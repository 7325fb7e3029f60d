#include "Tessel/Singletons.h"

#include <gtest/gtest.h>
#include <stdexcept>

#include "TesselTesting.h"

namespace SingletonsTest {

namespace {

using namespace Tessel;
using namespace TestSupport;

Ptr<Entity> aNode() {
    return make<Node>();
}

TEST(Singletons, AreOfTheProcess) {
    EXPECT_EQ(&Singletons::instance(), &Singletons::instance());
}

TEST(Singletons, CannotBeMadeOfAnUnknownType) {
    Singletons singletons;
    EXPECT_FALSE(singletons.find("Test::Node"));
    try {
        singletons.create("Test::Node");
        ADD_FAILURE();
    } catch (const std::out_of_range& refused) {
        EXPECT_STREQ(refused.what(), "no factory for singleton type Test::Node");
    }
}

TEST(Singletons, AreMadeWhenAskedForAndFoundAgain) {
    Singletons singletons;
    singletons.factoryIs("Test::Node", aNode);
    EXPECT_FALSE(singletons.find("Test::Node"));
    const Ptr<Entity> made = singletons.create("Test::Node");
    ASSERT_TRUE(made);
    EXPECT_EQ(made->typeName(), "Test::Node");
    EXPECT_EQ(singletons.find("Test::Node"), made);
    EXPECT_FALSE(singletons.find("Test::OtherNode"));
}

TEST(Singletons, AreNeverTwo) {
    Singletons singletons;
    singletons.factoryIs("Test::Node", aNode);
    const Ptr<Entity> made = singletons.create("Test::Node");
    EXPECT_EQ(singletons.create("Test::Node"), made);
    EXPECT_EQ(singletons.find("Test::Node"), made);
}

TEST(Singletons, AreMadeAgainAfterTheirRemoval) {
    Singletons singletons;
    singletons.factoryIs("Test::Node", aNode);
    singletons.singletonDel("Test::Node");
    const Ptr<Entity> made = singletons.create("Test::Node");
    singletons.singletonDel("Test::Node");
    EXPECT_FALSE(singletons.find("Test::Node"));
    EXPECT_EQ(made->references(), 1U);
    EXPECT_NE(singletons.create("Test::Node"), made);
}

} // namespace

} // namespace SingletonsTest
