#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Plugin {

/// A shared library that could not be loaded; the text names the file and the reason.
class LoadError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A loaded shared library; loading it runs the registrations of the plugins inside. It stays
/// loaded until the process ends, because counted objects of its types may outlive any owner.
class Library {
  public:
    /// Throws LoadError.
    static void load(const std::string& file);

    /// The path of a library that is installed beside the host's, wherever that is. Throws
    /// LoadError when the host's is not known.
    static std::string installed(const std::string& name);
};

/// What a plugin instance embeds: called with the agent's context once that exists.
template <typename Context>
class InitCaller {
  public:
    InitCaller() = default;
    InitCaller(const InitCaller&) = delete;
    InitCaller& operator=(const InitCaller&) = delete;
    virtual ~InitCaller() = default;
    virtual void operator()(Context* context) = 0;
};

template <typename Context>
class Loader;

/// Calls an init caller with whatever context the loader runs its list with.
template <typename Context>
struct CallerWithContext {
    InitCaller<Context>* initCaller = nullptr;

    void operator()(Context* context) const { (*initCaller)(context); }
};

/// One entry of a loader's list of init callers. The node belongs to the plugin instance, which
/// lives in static storage of its library.
template <typename Context>
struct InitCallerNode {
    InitCallerNode* next = nullptr;
    CallerWithContext<Context> caller;
    Loader<Context>* loader = nullptr;
    InitCaller<Context>* initCaller = nullptr;
};

/// Collects the plugins that register themselves while their libraries are loaded, and starts them.
/// Registration runs in static initialisers, one library at a time.
template <typename Context>
class Loader {
  public:
    struct Registration {
        std::string pluginName;
        std::string contextType;
        std::string secondName;
        std::string extra;
        CallerWithContext<Context> caller;
    };

    /// The process-wide loader of this context type.
    static Loader& defaultLoader();

    const std::string& contextType() const noexcept { return contextType_; }

    void pushFront(InitCallerNode<Context>& node) noexcept {
        node.next = initCallers_;
        initCallers_ = &node;
    }
    /// Takes the node off the list, and with it the registration of its caller.
    void remove(InitCallerNode<Context>& node) noexcept {
        std::erase_if(registrations_, [&](const Registration& registration) {
            return registration.caller.initCaller == node.initCaller;
        });
        for (InitCallerNode<Context>** link = &initCallers_; *link != nullptr;
             link = &(*link)->next) {
            if (*link == &node) {
                *link = node.next;
                return;
            }
        }
    }

    void registerPlugin(std::string_view pluginName, std::string_view contextType,
                        std::string_view secondName, std::string_view extra,
                        CallerWithContext<Context> caller) {
        registrations_.push_back({std::string(pluginName), std::string(contextType),
                                  std::string(secondName), std::string(extra), caller});
    }
    const std::vector<Registration>& registrations() const noexcept { return registrations_; }

    /// Starts every plugin on the list, the latest loaded first.
    void runInitCallers(Context* context) {
        for (InitCallerNode<Context>* node = initCallers_; node != nullptr; node = node->next) {
            node->caller(context);
        }
    }

    explicit Loader(std::string_view contextType) : contextType_(contextType) {}

  private:
    std::string contextType_;
    InitCallerNode<Context>* initCallers_ = nullptr;
    std::vector<Registration> registrations_;
};

/// The base of a plugin's one static instance. Constructing it puts the instance on the default
/// loader's list and registers its names; destroying it undoes both.
template <typename Context>
class PluginInstBase {
  public:
    PluginInstBase(const PluginInstBase&) = delete;
    PluginInstBase& operator=(const PluginInstBase&) = delete;
    virtual ~PluginInstBase() { node_.loader->remove(node_); }

    virtual void init(Context* context) = 0;

  protected:
    PluginInstBase(std::string_view pluginName, std::string_view secondName) : initCaller_(this) {
        Loader<Context>& loader = Loader<Context>::defaultLoader();
        node_.caller = {&initCaller_};
        node_.loader = &loader;
        node_.initCaller = &initCaller_;
        loader.pushFront(node_);
        loader.registerPlugin(pluginName, loader.contextType(), secondName, "", node_.caller);
    }

  private:
    class Caller : public InitCaller<Context> {
      public:
        explicit Caller(PluginInstBase* self) noexcept : self_(self) {}
        void operator()(Context* context) override { self_->init(context); }

      private:
        PluginInstBase* self_;
    };

    Caller initCaller_;
    InitCallerNode<Context> node_;
};

} // namespace Plugin
