#include "Hooks.h"

#include <fmt/format.h>

#include "Ovix/rewrite/MplsRewrites.h"
#include "Router.h"

namespace Differential {

namespace {

/// Refuses some frames, by a byte of theirs.
class Sieve : public Ovix::InputPipelineStep {
  public:
    /// `oneIn` of 0: none is refused, and none needs to be shown.
    explicit Sieve(std::uint8_t oneIn) : InputPipelineStep("Sieve"), oneIn_(oneIn) {}

    Ovix::InputVerdict process(const Ptr<Ovix::PacketContext>& context) override {
        constexpr std::size_t at = 17; // the TTL of a label
        const auto frame = context->pkt()->data();
        const bool refuses = oneIn_ > 0 && frame.size() > at && frame[at] % oneIn_ == 0;
        return refuses ? Ovix::InputVerdict{Ovix::InputVerdict::Kind::refused, "Sieved"}
                       : Ovix::InputVerdict{};
    }
    bool ignores(std::uint16_t) const noexcept override { return oneIn_ == 0; }

  private:
    std::uint8_t oneIn_;
};

/// Other hashes than the agent's.
class OtherHasher : public Ovix::MplsHasher {
  public:
    std::uint32_t hash(const Ovix::PacketHeader& header) const override {
        return ~MplsHasher::hash(header) * 3U;
    }
};

} // namespace

Step makeHookChange(Random& random) {
    const std::uint32_t of = random.below(10);
    const bool isBack = random.chance(65);
    if (of < 3) {
        const auto oneIn = static_cast<std::uint8_t>(isBack ? 0 : 4);
        return {fmt::format("step before routing: refuses one in {}", oneIn),
                [oneIn](Router& router) {
                    router.manager().genericPipelineSteps()->addStep(Tessel::make<Sieve>(oneIn));
                }};
    }
    if (of < 6) {
        return {fmt::format("hasher of labels: {}", isBack ? "the agent's" : "another"),
                [isBack](Router& router) {
                    const Ptr<Ovix::PacketHasherOfType> hasher =
                        isBack ? Tessel::make<Ovix::MplsHasher>() : Tessel::make<OtherHasher>();
                    router.manager().packetHashers()->hasherIs(Ovix::PktHdrType::mpls, hasher);
                }};
    }
    if (of < 8) {
        return {fmt::format("routing supported: {}", isBack), [isBack](Router& router) {
                    router.manager().routingCapabilities()->routingSupportedIs(isBack);
                }};
    }
    return {fmt::format("rewrite MplsPop: {}", isBack ? "bound" : "unbound"),
            [isBack](Router& router) {
                router.manager().sharedObjects()->rewriteInfoImplMap()->mapIs(
                    "MplsPop", isBack ? Ovix::MplsPopRewriteImpl::fromInfo : nullptr);
            }};
}

} // namespace Differential
