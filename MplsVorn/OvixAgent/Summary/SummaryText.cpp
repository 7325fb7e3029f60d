#include "Summary/SummaryText.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>

namespace OvixAgent {

using Json = nlohmann::ordered_json;

namespace {

Json trafficJson(const Traffic& traffic) {
    return {{"frames", traffic.frames}, {"bytes", traffic.bytes}};
}

Json forwardedJson(const Summary& summary) {
    Json forwarded = trafficJson(summary.forwardedTotal());
    forwarded["ports"] = Json::object();
    for (const PortTraffic& port : summary.forwarded) {
        forwarded["ports"][port.port] = trafficJson(port.traffic);
    }
    return forwarded;
}

Json reasonsJson(const Reasons& reasons) {
    Json counts = Json::object();
    for (const auto& [reason, count] : reasons.counts()) {
        counts[reason] = count;
    }
    return {{"frames", reasons.total()}, {"reasons", counts}};
}

Json pseudowiresJson(const std::vector<PseudowireTraffic>& pseudowires) {
    Json list = Json::array();
    for (const PseudowireTraffic& pseudowire : pseudowires) {
        list.push_back(Json{{"name", pseudowire.name},
                            {"sent", trafficJson(pseudowire.sent)},
                            {"delivered", trafficJson(pseudowire.delivered)}});
    }
    return list;
}

} // namespace

Json labelsJson(const std::vector<LabelTraffic>& labels) {
    Json list = Json::array();
    for (const LabelTraffic& label : labels) {
        list.push_back(Json{{"label", label.label},
                            {"packets", label.traffic.frames},
                            {"bytes", label.traffic.bytes}});
    }
    return list;
}

Json countersJson(const std::vector<NamedCounter>& counters) {
    Json list = Json::array();
    for (const NamedCounter& counter : counters) {
        list.push_back(Json{{"category", counter.category},
                            {"module", counter.module},
                            {"reason", counter.reason},
                            {"count", counter.count}});
    }
    return list;
}

std::string summaryJson(const Summary& summary) {
    Json json;
    json["balanced"] = summary.isBalanced();
    json["in"] = trafficJson(summary.in);
    json["forwarded"] = forwardedJson(summary);
    json["punted"] = reasonsJson(summary.punted);
    json["dropped"] = reasonsJson(summary.dropped);
    json["handedOn"] = reasonsJson(summary.handedOn);
    json["replicas"] = summary.replicas;
    json["exceptions"] = trafficJson(summary.exceptions);
    json["labels"] = labelsJson(summary.labels);
    json["pseudowires"] = pseudowiresJson(summary.pseudowires);
    json["counters"] = countersJson(summary.counters);
    json["tables"] = {{"name", summary.tables.name},
                      {"generation", summary.tables.generation},
                      {"corruptions", summary.tables.corruptions}};
    json["problems"] = summary.problems;
    // A file name need not be UTF-8, but JSON is.
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

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

void addReasons(Table& table, std::string_view fate, const Reasons& reasons) {
    table.row(std::string(fate), reasons.total());
    for (const auto& [reason, count] : reasons.counts()) {
        table.row("  " + reason, count);
    }
}

void addFates(Table& table, const Summary& summary) {
    table.heading("fate", "frames", "bytes");
    table.row("in", summary.in);
    table.row("forwarded", summary.forwardedTotal());
    for (const PortTraffic& port : summary.forwarded) {
        if (port.traffic.frames > 0) {
            table.row("  " + port.port, port.traffic);
        }
    }
    addReasons(table, "punted", summary.punted);
    addReasons(table, "dropped", summary.dropped);
    addReasons(table, "handed on", summary.handedOn);
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
            table.row(fmt::format("  {} {}: {}", counter.category, counter.module, counter.reason),
                      counter.count);
        }
    }
    std::string text = table.text();
    for (const std::string& problem : summary.problems) {
        text += fmt::format("\n{}\n", problem);
    }
    if (!summary.isBalanced()) {
        text += fmt::format("\nNOT BALANCED: {} frames in and {} copies, {} accounted for\n",
                            summary.in.frames, summary.replicas, summary.accountedFor());
    }
    return text;
}

} // namespace OvixAgent
