#pragma once

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "PluginFixture.h"

namespace TestSupport {

/// A plugin that the test takes through its life itself.
class LifecycleFixture : public PluginFixture {
  protected:
    /// Shared tables are mounted per system and process: a test that looks at mounts needs a system
    /// of its own.
    explicit LifecycleFixture(const std::string& systemName = "lifecycle")
        : PluginFixture(systemName) {}
    ~LifecycleFixture() override { ring().ringLevelIs(Ovix::TraceSource::off); }
    void SetUp() override {}

    /// Text handle, level, line.
    using TraceRow = std::tuple<std::string, unsigned, std::string>;

    /// Everything written to the text trace from here on; `onLine` runs as each line is written.
    void listenToTrace(std::function<void()> onLine = {}) {
        ring().ringLevelIs(0);
        Ovix::TraceOutput::instance().textLevelOfAllIs(0);
        Ovix::TraceOutput::instance().textSinkIs(
            [this, onLine](std::string_view handle, unsigned level, std::string_view line) {
                lines.emplace_back(handle, level, line);
                if (onLine) {
                    onLine();
                }
            });
    }
    static Ovix::TraceSource& ring() {
        return Ovix::TraceSource::named("Routing::Mpls", "Ovix::Routing::Mpls");
    }
    static std::string lastOfTheRing() {
        std::string last;
        Ovix::TraceOutput::instance().ring().visit([&](const Ovix::TraceRing::Record& record) {
            last = std::string(record.tag) + " " + std::string(record.line.view());
        });
        return last;
    }
    /// The line names the operation of the class by its whole signature, on the main trace at
    /// level 0.
    static void expectSignature(const TraceRow& row, const std::string& operation,
                                const std::string& ending) {
        const auto& [handle, level, line] = row;
        EXPECT_EQ(handle, "Ovix::Routing::Mpls");
        EXPECT_EQ(level, 0U);
        EXPECT_NE(line.find(operation + "("), std::string::npos) << line;
        ASSERT_GE(line.size(), ending.size());
        EXPECT_EQ(line.substr(line.size() - ending.size()), ending);
    }

    std::vector<TraceRow> lines;
};

/// Runs a function whenever an attribute of the entity changes.
class Watcher : public Tessel::Subscriber {
  public:
    using Heard = std::function<void(Tessel::AttrId)>;

    Watcher(const Tessel::Entity& entity, Heard heard)
        : entity_(&entity), heard_(std::move(heard)) {
        entity_->subscribe(*this);
    }
    ~Watcher() override {
        if (entity_ != nullptr) {
            entity_->unsubscribe(*this);
        }
    }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void attributeChanged(const Tessel::Entity&, Tessel::AttrId attribute, std::uint64_t) override {
        heard_(attribute);
    }
    /// For an entity that is destroyed while it is watched.
    void entityIsGone() noexcept { entity_ = nullptr; }

  private:
    const Tessel::Entity* entity_;
    Heard heard_;
};

} // namespace TestSupport
