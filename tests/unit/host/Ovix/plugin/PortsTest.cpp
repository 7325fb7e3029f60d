#include "Ovix/plugin/Ports.h"

#include <gtest/gtest.h>

namespace PortsTest {

namespace {

using namespace Ovix;

class NamedPort : public Port {
  public:
    using Port::Port;
    std::string_view shortName() const noexcept override { return "port"; }
    bool send(const Ptr<Lumo::Pkt>&) override { return true; }
};

TEST(Ports, AreFoundByTheirInterface) {
    Ports ports;
    const Ptr<Port> east = Tessel::make<NamedPort>(Lumo::IntfId("east"));
    const Ptr<Port> cpu = Tessel::make<NamedPort>(Lumo::CpuIntfId::cpuIdToIntfId(0));
    EXPECT_FALSE(ports.port(Lumo::IntfId("east")));
    ports.portIs(east);
    ports.portIs(cpu);
    EXPECT_EQ(ports.port(Lumo::IntfId("east")), east);
    EXPECT_EQ(ports.port(Lumo::CpuIntfId::cpuIdToIntfId(0)), cpu);
    EXPECT_FALSE(ports.port(Lumo::CpuIntfId::cpuIdToIntfId(1)));
    EXPECT_FALSE(ports.port(Lumo::IntfId()));
}

TEST(Ports, OneOfTheSameInterfaceIsReplaced) {
    Ports ports;
    const Ptr<Port> first = Tessel::make<NamedPort>(Lumo::IntfId("east"));
    const Ptr<Port> second = Tessel::make<NamedPort>(Lumo::IntfId("east"));
    ports.portIs(first);
    ports.portIs(second);
    EXPECT_EQ(ports.port(Lumo::IntfId("east")), second);
    EXPECT_EQ(first->references(), 1U);
}

} // namespace

} // namespace PortsTest
