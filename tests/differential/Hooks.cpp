#include "Hooks.h"

#include <fmt/format.h>

#include "Ovix/packet/FlowHash.h"
#include "Router.h"

namespace Differential {

namespace {

/// Other hashes than the agent's.
class OtherHasher : public Ovix::MplsHasher {
  public:
    std::uint32_t hash(const Ovix::PacketHeader& header) const override {
        return ~MplsHasher::hash(header) * 3U;
    }
};

} // namespace

Step makeHookChange(Random& random) {
    const bool isBack = random.chance(65);
    if (random.chance(60)) {
        return {fmt::format("hasher of labels: {}", isBack ? "the agent's" : "another"),
                [isBack](Router& router) {
                    const Ptr<Ovix::PacketHasherOfType> hasher =
                        isBack ? Tessel::make<Ovix::MplsHasher>() : Tessel::make<OtherHasher>();
                    router.manager().packetHashers()->hasherIs(Ovix::PktHdrType::mpls, hasher);
                }};
    }
    return {fmt::format("routing supported: {}", isBack), [isBack](Router& router) {
                router.manager().routingCapabilities()->routingSupportedIs(isBack);
            }};
}

} // namespace Differential
