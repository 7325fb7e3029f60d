#include "ChangingTables.h"

#include <array>
#include <stdexcept>
#include <vector>

#include "BusyWriter.h"
#include "Mpls/Hardware/Adjacency.h"
#include "Tables/TableLoading.h"

namespace Bench {

ChangingTables::ChangingTables(std::uint32_t labels)
    : labels_(labels), scenario_(makeScenario("swap", labels, std::size_t{1} << 20U)),
      name_(benchTables("churn")), writer_(Tessel::TableMemory::sharedForWriting(name_)) {
    if (!OvixAgent::loadTables(scenario_.config, "bench", writer_)) {
        throw std::logic_error("the tables refuse the routes");
    }
    writer_.commit();
}

ChangingTables::~ChangingTables() {
    Tessel::TableMemory::remove(name_);
}

Ptr<Tessel::TableReader> ChangingTables::reader() const {
    return OvixAgent::openSharedTables(name_, false).value();
}

void ChangingTables::change() {
    Mpls::ViaOptions options;
    options.intf = Lumo::IntfId("east");
    options.nexthop = Lumo::IpGenAddr::fromText("10.0.2.2");
    const std::array label{Lumo::MplsLabel(1000 + ++generation_ % 1000)};
    const Mpls::WeightedRecord via{Mpls::Via::swap(label, options).value().record(), 1};
    const auto adjacency = Mpls::Hardware::Adjacency::create(std::vector{via}, {}, false);
    std::uniform_int_distribution<std::uint64_t> id(1, labels_);
    for (std::uint32_t i = 0; i < labelsAtOnce; ++i) {
        writer_.hardware().adjacencyIs(id(random_), *adjacency);
    }
    writer_.commit();
}

} // namespace Bench
