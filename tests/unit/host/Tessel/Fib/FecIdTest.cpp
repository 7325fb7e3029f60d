#include "Tessel/Fib/FecId.h"

#include <gtest/gtest.h>

namespace FecIdTest {

using Lumo::IntfId;
using Tessel::Fib::FecId;

TEST(FecId, IsMappedToAHierarchicalInterface) {
    for (const std::uint64_t value : {std::uint64_t{1}, std::uint64_t{42},
                                      std::uint64_t{0x00ffffff00000000}, FecId::maxOfInterface}) {
        const IntfId intf = FecId::fecIdToHierarchicalIntfId(FecId(value));
        EXPECT_TRUE(FecId::isHierarchicalIntfId(intf));
        EXPECT_EQ(intf.id(), value);
    }
}

TEST(FecId, NoFecHasNoInterface) {
    EXPECT_FALSE(FecId());
    EXPECT_TRUE(FecId(1));
    EXPECT_TRUE(FecId::fecIdToHierarchicalIntfId(FecId()).empty());
}

TEST(FecId, AnIdThatDoesNotFitIsNotTakenForAnother) {
    EXPECT_TRUE(FecId::fecIdToHierarchicalIntfId(FecId(FecId::maxOfInterface + 1)).empty());
    EXPECT_TRUE(FecId::fecIdToHierarchicalIntfId(FecId(~std::uint64_t{0})).empty());
    EXPECT_TRUE(FecId::fecIdToHierarchicalIntfId(FecId(0x8000000000000042)).empty());
}

TEST(FecId, OtherInterfacesMeanNoFec) {
    for (const IntfId other : {IntfId(), IntfId("east"), Lumo::CpuIntfId::cpuIdToIntfId(0),
                               Lumo::VlanIntfId::vlanIdToIntfId(42)}) {
        EXPECT_FALSE(FecId::isHierarchicalIntfId(other));
    }
}

} // namespace FecIdTest
