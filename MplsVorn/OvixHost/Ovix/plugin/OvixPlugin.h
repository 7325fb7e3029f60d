#pragma once

#include <cassert>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Ovix/plugin/PluginManager.h"
#include "Plugin/Loader.h"
#include "Tessel/Entity.h"
#include "Tessel/EntityManager.h"

namespace Ovix {

/// The feature toggles of the device, kept in toggle files.
class ToggleService {
  public:
    /// Answers for a toggle of a toggle file; gets the default to return when nothing is set.
    using Source =
        std::function<bool(std::string_view file, std::string_view toggle, bool byDefault)>;

    static ToggleService& instance();

    /// The agent says where toggles are read from before it starts its plugins; without a source
    /// every toggle has its default.
    void sourceIs(Source source) { source_ = std::move(source); }

    bool toggleEnabled(std::string_view file, std::string_view toggle, bool byDefault) {
        known_[std::string(file)].emplace(toggle);
        return source_ ? source_(file, toggle, byDefault) : byDefault;
    }

    /// The toggles that were asked for, by toggle file: those that there are.
    using Known = std::map<std::string, std::set<std::string>>;
    const Known& known() const noexcept { return known_; }

  private:
    Source source_;
    Known known_;
};

class OvixPlugin;

/// What the agent gives its plugins when it starts them.
class PluginContext : public Tessel::Counted {
  public:
    PluginContext(Ptr<Tessel::EntityManager> entityManager, Ptr<PluginManager> manager)
        : entityManager_(std::move(entityManager)), manager_(std::move(manager)) {}

    /// The device's state database.
    const Ptr<Tessel::EntityManager>& entityManager() const noexcept { return entityManager_; }
    const Ptr<PluginManager>& manager() const noexcept { return manager_; }

    /// The main objects of the plugins started, which the agent drives from here on. Not owned: a
    /// plugin leaves the list when it is destroyed.
    const std::vector<OvixPlugin*>& plugins() const noexcept { return plugins_; }
    void pluginIs(OvixPlugin& plugin);
    void pluginDel(OvixPlugin& plugin) noexcept;

  private:
    Ptr<Tessel::EntityManager> entityManager_;
    Ptr<PluginManager> manager_;
    std::vector<OvixPlugin*> plugins_;
};

/// Is called when what it asked of the state database has been mounted.
class StateMounter : public Tessel::Entity {
  public:
    using Entity::Entity;
    virtual void mountsComplete(const Ptr<Tessel::EntityManager>& entityManager) = 0;
};

/// The life of a plugin, as the agent's main thread drives it, in this order.
class OvixPluginBase : public StateMounter {
  public:
    using StateMounter::StateMounter;

    virtual void createLocalEntities() {}
    virtual void setupPluginManager() {}
    virtual void standbyInit() {}
    virtual void switchoverInit() {}
    virtual void activeInit() {}
    virtual void savePluginRef(const Ptr<Tessel::EntityManager>& entityManager) = 0;
    /// The prefix under which the plugin's mount profiles are found; none by default.
    virtual std::string corvelMountProfilePrefix() const { return {}; }
};

/// The base of every plugin's main object.
class OvixPlugin : public OvixPluginBase {
  public:
    explicit OvixPlugin(std::string name) : OvixPluginBase(std::move(name)) {}
    ~OvixPlugin() override;

    const Ptr<PluginContext>& pluginCtx() const noexcept { return pluginCtx_; }
    /// A plugin given another context leaves the list of the one it had.
    void pluginCtxIs(Ptr<PluginContext> context);

    /// The context must have been set.
    const Ptr<PluginManager>& manager() const noexcept {
        assert(pluginCtx_);
        return pluginCtx_->manager();
    }

    const Ptr<Tessel::EntityManager>& entityManager() const noexcept { return entityManager_; }

    /// Keeps the state database and puts the plugin on the context's list.
    void savePluginRef(const Ptr<Tessel::EntityManager>& entityManager) override;

  private:
    Ptr<PluginContext> pluginCtx_;
    Ptr<Tessel::EntityManager> entityManager_;
};

} // namespace Ovix

template <>
Plugin::Loader<Ovix::PluginContext>& Plugin::Loader<Ovix::PluginContext>::defaultLoader();
