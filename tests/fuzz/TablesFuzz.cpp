#include <algorithm>
#include <array>
#include <utility>

#include "FrameMaker.h"
#include "Input.h"
#include "RouteMaker.h"
#include "Router.h"
#include "ScriptMaker.h"

namespace {

using namespace Differential;
namespace Layout = Tessel::TableLayout;

constexpr std::uint8_t firstDamage = 0x40;

/// Of one to three frames, so that most of an input's time goes to what it damages.
constexpr std::size_t bursts = 64;

/// A router and the memory of its tables, which is written to behind its back.
class Damaged {
  public:
    Damaged() : start_(makeStart(1)), router_(start_.script, Road::fast, Fault::none) {
        for (const Step& step : start_.script.steps) {
            step.change(router_);
        }
        constexpr std::uint64_t from = 1'600'000'000'000'000'000;
        for (std::size_t i = 0; i < bursts; ++i) {
            for (std::uint64_t frame = 0; frame <= i % 3; ++frame) {
                bursts_[i].push_back(makeFrame(random_, start_.network, from + i + frame));
            }
        }
    }

    /// A new generation is damaged before and after frames have been forwarded by it, and is whole
    /// again at the end.
    void run(Fuzz::Input input) {
        makeLabelChange(random_, start_.network).change(router_);
        router_.commit();
        const std::size_t used = router_.publisher().tables().usedBytes() / Layout::unitBytes;
        whole_.assign(memory().begin(), memory().begin() + static_cast<std::ptrdiff_t>(used));
        bool isNew = true; // else frames would meet what others have met
        while (!input.isEmpty()) {
            const std::uint8_t what = input.byte();
            if (what >= firstDamage) {
                damage(input, what, used);
                isNew = true;
            } else if (std::exchange(isNew, false)) {
                receive(what);
            }
        }
        receive(0);
        Fuzz::check(router_.summary().isBalanced(), "the frames do not add up");
        std::copy(whole_.begin(), whole_.end(), memory().begin());
    }

  private:
    std::span<std::uint64_t> memory() const {
        const std::span<std::byte> bytes = router_.publisher().tables().memory();
        return {reinterpret_cast<std::uint64_t*>(bytes.data()), bytes.size() / Layout::unitBytes};
    }
    void damage(Fuzz::Input& input, std::uint8_t what, std::size_t used);
    void receive(std::uint8_t how);

    Random random_{1};
    Start start_;
    mutable Router router_;
    std::array<std::vector<ScriptFrame>, bursts> bursts_;
    std::size_t next_ = 0;
    std::vector<std::uint64_t> whole_;
};

/// One word: in the header, in what was written last, or anywhere.
void Damaged::damage(Fuzz::Input& input, std::uint8_t what, std::size_t used) {
    const std::uint32_t place = input.number<std::uint32_t>();
    const auto value = input.number<std::uint64_t>();
    const std::size_t current = Layout::load(memory()[offsetof(Layout::TableHeader, current) / 8]);
    const std::size_t root = Tessel::TableRef{current}.unit();
    const std::size_t at = (what & 3U) == 0   ? place % (sizeof(Layout::TableHeader) / 8)
                           : (what & 3U) == 1 ? (root + place % 64) % used
                                              : place % used;
    std::uint64_t& word = memory()[at];
    switch (what >> 2U & 3U) {
    case 0:
        word ^= std::uint64_t{1} << (value % 64);
        break;
    case 1:
        word = value;
        break;
    case 2:
        word = memory()[value % used];
        break;
    default: // as the writer would seal it
        word = (what & 3U) == 0
                   ? Layout::sealedHorizon(value & 0xffffffffU)
                   : Layout::sealed(static_cast<std::uint32_t>(value % used), place).word;
    }
}

void Damaged::receive(std::uint8_t how) {
    router_.fastPathIs((how & 1U) != 0);
    router_.traceIs(false);
    router_.receive(bursts_[next_]);
    next_ = (next_ + 1) % bursts;
    router_.settleWaiting(true);
    router_.take(false);
}

} // namespace

/// Damages to shared tables with a reader that forwards: what is damaged reads as absent, and no
/// frame is lost without a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned mostInputs = 20000; // then counted names and withdrawn routes are many
    static Damaged* damaged = nullptr;     // outlives what a router refers to
    static unsigned inputs = 0;
    if (inputs++ % mostInputs == 0) {
        delete damaged; // there may be only one at a time
        damaged = nullptr;
        damaged = new Damaged;
    }
    damaged->run({data, size});
    return 0;
}
