#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <string_view>
#include <utility>

#include "Ovix/trace/NamedCounters.h"
#include "State/Fate.h"
#include "Summary/Summary.h"

namespace OvixAgent {

namespace {

/// Lines of a text and one or two numbers, which are right-aligned below each other.
class Table {
  public:
    void row(std::string text, std::uint64_t count) {
        rows_.push_back({std::move(text), fmt::format("{}", count), {}});
    }
    void row(std::string text, const Traffic& traffic) {
        rows_.push_back(
            {std::move(text), fmt::format("{}", traffic.frames), fmt::format("{}", traffic.bytes)});
    }
    void heading(std::string text, std::string count, std::string bytes = {}) {
        if (!rows_.empty()) {
            rows_.push_back({});
        }
        rows_.push_back({std::move(text), std::move(count), std::move(bytes)});
    }

    std::string text() const {
        std::size_t widths[3]{};
        for (const Row& row : rows_) {
            widths[0] = std::max(widths[0], row.text.size());
            widths[1] = std::max(widths[1], row.count.size());
            widths[2] = std::max(widths[2], row.bytes.size());
        }
        std::string result;
        for (const Row& row : rows_) {
            std::string line =
                fmt::format("{:<{}}  {:>{}}", row.text, widths[0], row.count, widths[1]);
            if (!row.bytes.empty()) {
                fmt::format_to(std::back_inserter(line), "  {:>{}}", row.bytes, widths[2]);
            }
            result.append(row.text.empty() ? "" : line) += '\n';
        }
        return result;
    }

  private:
    struct Row {
        std::string text;
        std::string count;
        std::string bytes;
    };

    std::vector<Row> rows_;
};

void addReasons(Table& table, FateKind fate, const Reasons& reasons) {
    table.row(std::string(Tessel::wordOf(fate)), reasons.total());
    for (const auto& [reason, count] : reasons.counts()) {
        table.row("  " + Ovix::readableEvent({}, reason).reason, count);
    }
}

void addFates(Table& table, const Summary& summary) {
    table.heading("fate", "frames", "bytes");
    table.row("in", summary.in);
    table.row(std::string(Tessel::wordOf(FateKind::forwarded)), summary.forwardedTotal());
    for (const PortTraffic& port : summary.forwarded) {
        if (port.traffic.frames > 0) {
            table.row("  " + port.port, port.traffic);
        }
    }
    addReasons(table, FateKind::punted, summary.punted);
    addReasons(table, FateKind::dropped, summary.dropped);
    addReasons(table, FateKind::handedOn, summary.handedOn);
    if (summary.replicas > 0) {
        table.row("replicas", summary.replicas);
    }
    if (summary.exceptions.frames > 0) {
        table.row("exceptions", summary.exceptions);
    }
}

} // namespace

std::string summaryTable(const Summary& summary) {
    Table table;
    addFates(table, summary);
    if (!summary.labels.empty()) {
        table.heading("label", "packets", "bytes");
        for (const LabelTraffic& label : summary.labels) {
            table.row(fmt::format("  {}", label.label), label.traffic);
        }
    }
    if (!summary.pseudowires.empty()) {
        table.heading("pseudowire", "frames", "bytes");
        for (const PseudowireTraffic& pseudowire : summary.pseudowires) {
            table.row(fmt::format("  {} sent", pseudowire.name), pseudowire.sent);
            table.row(fmt::format("  {} delivered", pseudowire.name), pseudowire.delivered);
        }
    }
    if (!summary.counters.empty()) {
        table.heading("counter", "count");
        for (const NamedCounter& counter : summary.counters) {
            const auto [category, reason] = Ovix::readableEvent(counter.category, counter.reason);
            table.row(fmt::format("  {} {}: {}", category, counter.module, reason), counter.count);
        }
    }
    std::string text = table.text();
    for (const auto* const list : {&summary.problems, &summary.closedPorts}) {
        for (const std::string& problem : *list) {
            text += fmt::format("\n{}\n", problem);
        }
    }
    if (!summary.isBalanced()) {
        text += fmt::format("\nNOT BALANCED: {} frames in and {} copies, {} accounted for\n",
                            summary.in.frames, summary.replicas, summary.accountedFor());
    }
    return text;
}

} // namespace OvixAgent
