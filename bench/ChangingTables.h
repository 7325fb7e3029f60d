#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "Published/TablePublisher.h"
#include "Scenarios.h"

namespace Bench {

/// Tables in shared memory with so many labels that are swapped, which are changed a thousand at a
/// time.
class ChangingTables {
  public:
    static constexpr std::uint32_t labelsAtOnce = 1000;

    explicit ChangingTables(std::uint32_t labels);
    ChangingTables(const ChangingTables&) = delete;
    ChangingTables& operator=(const ChangingTables&) = delete;
    ~ChangingTables();

    const Scenario& scenario() const noexcept { return scenario_; }
    Ptr<Tessel::TableReader> reader() const;
    /// Random labels are swapped for another one, in one generation.
    void change();

  private:
    std::uint32_t labels_;
    Scenario scenario_;
    std::string name_;
    Mpls::TablePublisher writer_;
    std::mt19937 random_{1};
    std::uint32_t generation_ = 0;
};

} // namespace Bench
