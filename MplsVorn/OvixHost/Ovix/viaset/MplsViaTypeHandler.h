#pragma once

#include <array>
#include <cstdint>

#include "Mpls/Types.h"
#include "Ovix/routing/LabelDecision.h"
#include "Ovix/viaset/MplsContext.h"
#include "Tessel/Entity.h"

namespace Ovix {

/// What became of a frame: 1, dealt with (forwarded, trapped, or dropped and counted).
using ProcessingResult = std::uint8_t;
inline constexpr ProcessingResult frameDealtWith = 1;

/// Turns a chosen via of one type into output.
class MplsViaTypeHandler : public Tessel::Counted {
  public:
    explicit MplsViaTypeHandler(Mpls::LfibViaType viaType) noexcept : viaType_(viaType) {}

    Mpls::LfibViaType viaType() const noexcept { return viaType_; }
    virtual ProcessingResult processMplsVia(const Ptr<MplsContext>& context) = 0;

    /// What the outcome for the via of that context depends on. A handler that says less than
    /// `frame` is not asked about every frame: its outcome is kept.
    virtual DecidedBy decidedBy(const MplsContext&) const { return DecidedBy::frame; }

  private:
    Mpls::LfibViaType viaType_;
};

/// The handlers by via type, one registry per process, shared by all plugins.
class MplsViaTypeHandlerRegistry : public Tessel::Entity {
  public:
    static constexpr std::string_view entityTypeName = "Ovix::MplsViaTypeHandlerRegistry";
    enum Attr : Tessel::AttrId { handlerAttr = 0 };

    MplsViaTypeHandlerRegistry() : Entity("mplsViaTypeHandlerRegistry") {}
    std::string_view typeName() const noexcept override { return entityTypeName; }

    /// Makes the type known to Tessel::Singletons; the host library does so when it is loaded.
    static void registerFactory();

    /// Stores a handler under its own via type; a later one for the same type replaces it.
    void doRegisterMplsViaTypeHandler(Ptr<MplsViaTypeHandler> handler) {
        const auto type = static_cast<std::size_t>(handler->viaType());
        handlers_[type] = std::move(handler);
        publish(handlerAttr, type);
    }

    /// Empty when no handler is registered for the type.
    const Ptr<MplsViaTypeHandler>& handler(Mpls::LfibViaType type) const noexcept {
        return handlers_[static_cast<std::size_t>(type)];
    }

  private:
    // Indexed by the 8-bit via type: the map whose every lookup is one load.
    std::array<Ptr<MplsViaTypeHandler>, 256> handlers_;
};

} // namespace Ovix
