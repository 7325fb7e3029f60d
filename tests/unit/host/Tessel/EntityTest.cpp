#include "Tessel/Entity.h"

#include <functional>
#include <gtest/gtest.h>
#include <stdexcept>
#include <utility>
#include <vector>

namespace EntityTest {

namespace {

using namespace Tessel;

class Node : public Entity {
  public:
    enum Attr : AttrId { numberAttr = 0, childAttr = 1 };

    explicit Node(std::string name, bool* destroyingSeen = nullptr)
        : Entity(std::move(name)), destroyingSeen_(destroyingSeen) {}
    ~Node() override {
        destroyingIs(true);
        if (destroyingSeen_ != nullptr) {
            *destroyingSeen_ = destroying();
        }
        childDel();
    }

    std::string_view typeName() const noexcept override { return "Node"; }
    void numberIs(int number) { assignAndPublish(number_, number, numberAttr); }
    int number() const noexcept { return number_; }
    void childIs(const Ptr<Node>& child) { assignAndPublish(child_, child, childAttr); }
    Ptr<Node> childDel() { return clearAndPublish(child_, childAttr); }

    int parentChanges = 0;

  protected:
    void parentChanged() override { ++parentChanges; }

  private:
    bool* destroyingSeen_;
    int number_ = 0;
    Ptr<Node> child_;
};

using Change = std::pair<AttrId, std::uint64_t>;

class Listener : public Subscriber {
  public:
    void attributeChanged(const Entity& publisher, AttrId attribute, std::uint64_t key) override {
        heard.emplace_back(attribute, key);
        if (react) {
            react(publisher);
        }
    }
    std::vector<Change> heard;
    std::function<void(const Entity&)> react;
};

TEST(Entity, HasANameAndNoParent) {
    const Node node("a name");
    EXPECT_EQ(node.name(), "a name");
    EXPECT_EQ(node.parent(), nullptr);
    EXPECT_FALSE(node.destroying());
}

TEST(Entity, TellsAnAttributeOnlyWhenItsValueChanges) {
    Listener listener;
    Node node("n");
    node.subscribe(listener);
    node.numberIs(0);
    EXPECT_TRUE(listener.heard.empty());
    node.numberIs(5);
    node.numberIs(5);
    EXPECT_EQ(listener.heard, (std::vector<Change>{{Node::numberAttr, 0}}));
    const Ptr<Node> child = make<Node>("child");
    node.childIs(child);
    node.childIs(child);
    EXPECT_EQ(listener.heard.size(), 2U);
    EXPECT_EQ(listener.heard.back(), Change(Node::childAttr, 0));
}

TEST(Entity, HasTheNewValueWhenItTells) {
    Node node("n");
    Listener listener;
    int seen = 0;
    listener.react = [&](const Entity& publisher) {
        seen = dynamic_cast<const Node&>(publisher).number();
    };
    node.subscribe(listener);
    node.numberIs(9);
    EXPECT_EQ(seen, 9);
}

TEST(Entity, ClearingReturnsWhatWasHeldAndTellsOnce) {
    Node node("n");
    Listener listener;
    const Ptr<Node> child = make<Node>("child");
    node.childIs(child);
    node.subscribe(listener);
    EXPECT_EQ(node.childDel(), child);
    EXPECT_EQ(child->references(), 1U);
    EXPECT_EQ(node.childDel(), nullptr);
    EXPECT_EQ(listener.heard, (std::vector<Change>{{Node::childAttr, 0}}));
}

TEST(Entity, NamesTheElementOfAKeyedAttribute) {
    const Node node("n");
    Listener listener;
    node.subscribe(listener);
    node.publish(7, 0xffffffffffffffff);
    EXPECT_EQ(listener.heard, (std::vector<Change>{{7, 0xffffffffffffffff}}));
}

TEST(Entity, SubscribesOnceHoweverOftenAsked) {
    Node node("n");
    Listener listener;
    node.subscribe(listener);
    node.subscribe(listener);
    node.numberIs(1);
    EXPECT_EQ(listener.heard.size(), 1U);
    node.unsubscribe(listener);
    node.unsubscribe(listener);
    node.numberIs(2);
    EXPECT_EQ(listener.heard.size(), 1U);
}

TEST(Entity, TellsNothingMoreToOneWhoLeavesDuringAPublication) {
    for (const bool earlier : {true, false}) {
        Node node("n");
        Listener leaver;
        Listener other;
        other.react = [&](const Entity& publisher) { publisher.unsubscribe(leaver); };
        node.subscribe(earlier ? leaver : other);
        node.subscribe(earlier ? other : leaver);
        node.numberIs(1);
        node.numberIs(2);
        EXPECT_EQ(leaver.heard.size(), earlier ? 1U : 0U);
        EXPECT_EQ(other.heard.size(), 2U);
    }
}

TEST(Entity, LetsASubscriberLeaveAndComeBackInItsOwnCall) {
    Node node("n");
    Listener listener;
    Listener after;
    listener.react = [&](const Entity& publisher) {
        publisher.unsubscribe(listener);
        publisher.subscribe(listener);
    };
    node.subscribe(listener);
    node.subscribe(after);
    node.numberIs(1);
    EXPECT_EQ(listener.heard.size(), 1U);
    node.numberIs(2);
    EXPECT_EQ(listener.heard.size(), 2U);
    EXPECT_EQ(after.heard.size(), 2U);
}

TEST(Entity, ReportsToANewSubscriberFromTheNextChangeOn) {
    Node node("n");
    Listener host;
    std::vector<Listener> newcomers(50);
    host.react = [&](const Entity& publisher) {
        for (Listener& newcomer : newcomers) {
            publisher.subscribe(newcomer);
        }
    };
    node.subscribe(host);
    node.numberIs(1);
    for (const Listener& newcomer : newcomers) {
        EXPECT_TRUE(newcomer.heard.empty());
    }
    node.numberIs(2);
    for (const Listener& newcomer : newcomers) {
        EXPECT_EQ(newcomer.heard.size(), 1U);
    }
}

TEST(Entity, PublishesAChangeMadeWhilePublishing) {
    Node node("n");
    Listener changer;
    Listener leaver;
    changer.react = [&](const Entity&) {
        if (node.number() < 3) {
            node.numberIs(node.number() + 1);
        } else {
            node.unsubscribe(leaver); // two publications deep
        }
    };
    node.subscribe(changer);
    node.subscribe(leaver);
    node.numberIs(1);
    EXPECT_EQ(changer.heard.size(), 3U);
    EXPECT_TRUE(leaver.heard.empty());
    node.numberIs(10);
    EXPECT_EQ(changer.heard.size(), 4U);
}

TEST(Entity, StaysInOrderWhenASubscriberThrows) {
    Node node("n");
    Listener thrower;
    Listener other;
    thrower.react = [&](const Entity& publisher) {
        publisher.unsubscribe(thrower);
        throw std::runtime_error("refused");
    };
    node.subscribe(thrower);
    node.subscribe(other);
    EXPECT_THROW(node.numberIs(1), std::runtime_error);
    node.unsubscribe(other);
    node.subscribe(other);
    node.numberIs(2);
    EXPECT_EQ(thrower.heard.size(), 1U);
    EXPECT_EQ(other.heard.size(), 1U);
}

TEST(Entity, KnowsItsParentAndHearsWhenItChanges) {
    Node parent("parent");
    Node other("other");
    Node child("child");
    child.parentIs(&parent);
    EXPECT_EQ(child.parent(), &parent);
    child.parentIs(&parent);
    EXPECT_EQ(child.parentChanges, 1);
    child.parentIs(&other);
    child.parentIs(nullptr);
    EXPECT_EQ(child.parent(), nullptr);
    EXPECT_EQ(child.parentChanges, 3);
    EXPECT_EQ(parent.references(), 0U);
}

TEST(Entity, SaysSoWhenItIsBeingDestroyed) {
    bool destroyingSeen = false;
    Listener listener;
    bool heardDestroying = false;
    listener.react = [&](const Entity& publisher) { heardDestroying = publisher.destroying(); };
    {
        const Ptr<Node> node = make<Node>("n", &destroyingSeen);
        node->childIs(make<Node>("child"));
        node->subscribe(listener);
        EXPECT_FALSE(node->destroying());
    }
    EXPECT_TRUE(destroyingSeen);
    EXPECT_TRUE(heardDestroying);
}

} // namespace

} // namespace EntityTest
