// How libFuzzer makes inputs of the road from others: by frames near what the tables know, or by
// its own ways within a frame or over all.

#include <array>

#include "FrameMaker.h"
#include "RoadInput.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

namespace {

using namespace Fuzz;
using Differential::Random;

const Differential::Network& networkOf(unsigned world) {
    static std::array<std::optional<Differential::Start>, worlds> all;
    if (!all[world]) {
        all[world] = makeWorld(world);
    }
    return all[world]->network;
}

class Mutation {
  public:
    Mutation(Bytes input, std::size_t most, unsigned seed)
        : bytes_(input.begin(), input.end()), most_(most), random_(seed) {
        bytes_.resize(std::max<std::size_t>(bytes_.size(), 1));
        bytes_[0] =
            static_cast<std::uint8_t>(random_.chance(1) ? random_.below(worlds) : worldNow());
    }

    const std::vector<std::uint8_t>& make() {
        const std::uint32_t of = random_.below(100);
        const std::size_t steps = places().size() - 1;
        if (of < 55 || steps == 0) {
            for (std::uint32_t more = random_.below(16) + 1; more > 0; --more) {
                insert(frame());
            }
        } else if (of < 58) {
            insert(change());
        } else if (of < 63) {
            remove(random_.below(steps));
        } else if (of < 95) {
            vary(random_.below(steps));
        } else {
            varyAll();
        }
        if (bytes_.size() > most_) {
            bytes_.resize(most_);
        }
        return bytes_;
    }

  private:
    std::vector<std::size_t> places() const { return stepPlaces(bytes_); }
    std::ptrdiff_t somePlace() {
        const auto all = places();
        return static_cast<std::ptrdiff_t>(all[random_.below(all.size())]);
    }
    std::vector<std::uint8_t> frame() {
        const auto made = makeFrame(random_, networkOf(worldNow()), 0);
        return frameStep(made, random_.chance(20));
    }
    std::vector<std::uint8_t> change() {
        return {static_cast<std::uint8_t>(firstChange + random_.below(2)), random_.byte(),
                random_.byte(), random_.byte(), random_.byte()};
    }
    void insert(const std::vector<std::uint8_t>& step) {
        bytes_.insert(bytes_.begin() + somePlace(), step.begin(), step.end());
    }
    void remove(std::size_t step) {
        const auto all = places();
        bytes_.erase(bytes_.begin() + static_cast<std::ptrdiff_t>(all[step]),
                     bytes_.begin() + static_cast<std::ptrdiff_t>(all[step + 1]));
    }
    /// Changes bytes of a step, and keeps its length.
    void vary(std::size_t step) {
        const auto all = places();
        const std::size_t header = bytes_[all[step]] >= firstChange ? 1 : frameHeader;
        const std::size_t from =
            std::min(all[step] + (random_.chance(90) ? header : 0), all[step + 1]);
        const std::size_t size = all[step + 1] - from;
        if (size > 0) {
            LLVMFuzzerMutate(bytes_.data() + from, size, size);
        }
    }
    void varyAll() {
        const std::size_t size = bytes_.size();
        bytes_.resize(std::max(size, most_));
        bytes_.resize(LLVMFuzzerMutate(bytes_.data(), size, most_));
    }

    std::vector<std::uint8_t> bytes_;
    std::size_t most_;
    Random random_;
};

} // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t most, unsigned seed) {
    const std::vector<std::uint8_t> made = Mutation({data, size}, most, seed).make();
    std::copy(made.begin(), made.end(), data);
    return made.size();
}
