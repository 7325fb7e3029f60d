#include "Published/WaitingRoutes.h"

#include <algorithm>
#include <utility>

#include "Tessel/Exceptions.h"

namespace Mpls {

Tessel::Result<LabelRoute> readWaitingRoute(const Ptr<const Tessel::TableReader>& tables,
                                            std::uint32_t place, LfibLayout::WaitingWord waits) {
    const auto table = TableId::waitingRoutes;
    Tessel::Result<LabelRoute> read =
        readLabelRoute(*Tessel::make<LfibStatus>(tables, table), table, Lumo::MplsLabel(place));
    if (!read) {
        return read;
    }
    LabelRoute route = std::move(read).value();
    route.table = waits.table();
    route.label = waits.label();
    return route;
}

std::vector<LabelRoute> readWaitingRoutes(const Ptr<const Tessel::TableReader>& tables) {
    std::vector<LabelRoute> all;
    std::vector<std::uint64_t> words;
    constexpr auto table = static_cast<std::size_t>(TableId::waitingRoutes);
    tables->forEach(table, [&](std::uint32_t place, Tessel::TableRef ref) {
        try {
            constexpr std::string_view what = "waiting route at unit";
            words.resize(tables->headOf(ref, what).ownWords);
            tables->read(ref, Tessel::RecordKind::viaSet, words, what);
        } catch (const Tessel::CorruptionDetected&) {
            return;
        }
        const LfibLayout::WaitingWord waits{words.empty() ? 0 : words.back()};
        if (const auto route = readWaitingRoute(tables, place, waits);
            route && isLfib(waits.table())) {
            all.push_back(route.value());
        }
    });
    std::stable_sort(all.begin(), all.end(),
                     [](const LabelRoute& a, const LabelRoute& b) { return a.label < b.label; });
    return all;
}

} // namespace Mpls
