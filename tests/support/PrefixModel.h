#pragma once

#include <gtest/gtest.h>
#include <map>
#include <random>

#include "State/PrefixChange.h"

namespace OvixAgent {

/// The prefixes of a lookup table, asked one by one: slow and plainly right.
class PrefixModel {
  public:
    struct Prefix {
        unsigned length;
        PrefixBytes bytes;
        friend auto operator<=>(const Prefix&, const Prefix&) = default;
    };

    std::map<Prefix, PrefixValue> values;

    /// The value of the longest prefix of the address that is shorter than `limit`.
    PrefixValue find(const PrefixBytes& address, unsigned limit = 129) const {
        PrefixValue found = noPrefix; // the map's order is that of the lengths
        for (const auto& [prefix, value] : values) {
            if (prefix.length < limit && masked(address, prefix.length) == prefix.bytes) {
                found = value;
            }
        }
        return found;
    }

    static PrefixBytes masked(PrefixBytes bytes, unsigned length) {
        for (unsigned bit = length; bit < bytes.size() * 8; ++bit) {
            bytes[bit / 8] &= static_cast<std::uint8_t>(~(0x80U >> bit % 8));
        }
        return bytes;
    }
};

/// Random prefixes come and go, and random addresses are looked up in between; in the end all go.
template <typename Lookup>
class LookupComparison {
  public:
    LookupComparison(unsigned seed, unsigned bits) : random_(seed), bits_(bits) {}

    void run(unsigned steps) {
        for (unsigned step = 0; step < steps; ++step) {
            if (model_.values.empty() || random_() % 3 != 0) {
                add();
            } else {
                removeAny();
            }
            for (int i = 0; i < 5; ++i) {
                const PrefixBytes address = anyAddress();
                ASSERT_EQ(lookup_.find(address), model_.find(address)) << "step " << step;
            }
        }
        while (!model_.values.empty()) {
            removeAny();
        }
        EXPECT_EQ(lookup_.find(anyAddress()), noPrefix);
    }

    const Lookup& lookup() const { return lookup_; }

  private:
    /// Of few distinct bits, so that prefixes nest and addresses lie in them.
    PrefixBytes anyAddress() {
        PrefixBytes bytes{};
        for (unsigned i = 0; i < bits_ / 8; ++i) {
            bytes[i] =
                static_cast<std::uint8_t>(random_() % 3 == 0 ? random_() : random_() % 2 * 255);
        }
        return bytes;
    }

    void add() {
        const auto length = static_cast<unsigned>(random_() % (bits_ + 1));
        const PrefixBytes bytes = PrefixModel::masked(anyAddress(), length);
        const PrefixValue value =
            free_.empty() ? static_cast<PrefixValue>(model_.values.size()) : free_.back();
        if (model_.values.try_emplace({length, bytes}, value).second) {
            lookup_.insert(bytes, length, value);
            if (!free_.empty()) {
                free_.pop_back();
            }
        }
    }

    void removeAny() {
        auto at = model_.values.begin();
        std::advance(at, random_() % model_.values.size());
        const auto [prefix, value] = *at;
        model_.values.erase(at);
        lookup_.erase(prefix.bytes, prefix.length, model_.find(prefix.bytes, prefix.length));
        free_.push_back(value);
    }

    std::mt19937 random_;
    unsigned bits_;
    PrefixModel model_;
    Lookup lookup_;
    std::vector<PrefixValue> free_;
};

} // namespace OvixAgent
