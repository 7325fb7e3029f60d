#include "Plugin/Loader.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace LoaderTest {

/// What the plugins of this file are started with.
struct Context {
    std::vector<std::string> started;
};

} // namespace LoaderTest

template <>
Plugin::Loader<LoaderTest::Context>& Plugin::Loader<LoaderTest::Context>::defaultLoader() {
    static Loader loader("Test::Context");
    return loader;
}

namespace LoaderTest {

namespace {

using Loader = Plugin::Loader<Context>;

class Inst : public Plugin::PluginInstBase<Context> {
  public:
    explicit Inst(std::string name, const std::string& secondName = "Second")
        : PluginInstBase(name, secondName), name_(std::move(name)) {}

    void init(Context* context) override { context->started.push_back(name_); }

  private:
    std::string name_;
};

std::vector<std::string> started() {
    Context context;
    Loader::defaultLoader().runInitCallers(&context);
    return context.started;
}

using Names = std::vector<std::string>;

TEST(Loader, StartsNothingWhenNothingIsLoaded) {
    EXPECT_TRUE(started().empty());
    EXPECT_TRUE(Loader::defaultLoader().registrations().empty());
    EXPECT_EQ(Loader::defaultLoader().contextType(), "Test::Context");
}

TEST(Loader, StartsThePluginsLatestFirst) {
    const Inst first("first");
    EXPECT_EQ(started(), Names{"first"});
    const Inst second("second");
    const Inst third("third");
    EXPECT_EQ(started(), (Names{"third", "second", "first"}));
    EXPECT_EQ(started(), (Names{"third", "second", "first"}));
}

TEST(Loader, RegistersEachPluginUnderItsNamesInOrder) {
    const Inst first("FirstPlugin", "One");
    const Inst second("SecondPlugin", "Two");
    const auto& registrations = Loader::defaultLoader().registrations();
    ASSERT_EQ(registrations.size(), 2U);
    EXPECT_EQ(registrations[0].pluginName, "FirstPlugin");
    EXPECT_EQ(registrations[0].contextType, "Test::Context");
    EXPECT_EQ(registrations[0].secondName, "One");
    EXPECT_EQ(registrations[0].extra, "");
    EXPECT_EQ(registrations[1].pluginName, "SecondPlugin");
    EXPECT_EQ(registrations[1].secondName, "Two");
    Context context;
    registrations[0].caller(&context);
    EXPECT_EQ(context.started, Names{"FirstPlugin"});
}

TEST(Loader, ForgetsAnInstanceThatIsDestroyed) {
    auto first = std::make_unique<Inst>("first");
    auto middle = std::make_unique<Inst>("middle");
    auto last = std::make_unique<Inst>("last");
    middle.reset();
    EXPECT_EQ(started(), (Names{"last", "first"}));
    const auto& registrations = Loader::defaultLoader().registrations();
    ASSERT_EQ(registrations.size(), 2U);
    EXPECT_EQ(registrations[0].pluginName, "first");
    EXPECT_EQ(registrations[1].pluginName, "last");
    first.reset();
    EXPECT_EQ(started(), Names{"last"});
    last.reset();
    EXPECT_TRUE(started().empty());
    EXPECT_TRUE(registrations.empty());
}

TEST(Loader, ForgetsAnInstanceWhoseConstructionFails) {
    struct Failing : Inst {
        Failing() : Inst("failing") { throw 1; }
    };
    EXPECT_THROW(Failing(), int);
    EXPECT_TRUE(started().empty());
    EXPECT_TRUE(Loader::defaultLoader().registrations().empty());
}

TEST(Loader, KeepsListsApart) {
    Loader own("Other::Context");
    EXPECT_EQ(own.contextType(), "Other::Context");
    const Inst inst("inst");
    Context context;
    own.runInitCallers(&context);
    EXPECT_TRUE(context.started.empty());
    Plugin::InitCallerNode<Context> stranger;
    Loader::defaultLoader().remove(stranger); // on no list
    EXPECT_EQ(started(), Names{"inst"});
}

TEST(Loader, HandsEveryNodeTheContext) {
    struct Caller : Plugin::InitCaller<Context> {
        void operator()(Context* context) override { seen = context; }
        Context* seen = nullptr;
    };
    Loader own("Test::Context");
    Caller caller;
    Plugin::InitCallerNode<Context> node{nullptr, {&caller}, &own, &caller};
    own.pushFront(node);
    Context context;
    own.runInitCallers(&context);
    EXPECT_EQ(caller.seen, &context);
    own.runInitCallers(nullptr);
    EXPECT_EQ(caller.seen, nullptr);
    own.remove(node);
    own.runInitCallers(&context);
    EXPECT_EQ(caller.seen, nullptr);
}

} // namespace

} // namespace LoaderTest
