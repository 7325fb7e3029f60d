#include <fmt/format.h>

#include "Explain/Explanation.h"
#include "Explain/FrameWords.h"

namespace OvixAgent {

namespace {

constexpr const char* pageStyle = R"(
:root{color-scheme:light dark;--ink:#1b1f24;--paper:#fff;--line:#8a94a0;--box:#f2f5f8;--good:#0a6b3d;--bad:#b3261e}
@media (prefers-color-scheme:dark){:root{--ink:#e8ebef;--paper:#15181c;--line:#77818d;--box:#22272e;--good:#5fd39a;--bad:#ff8a80}}
body{font:16px/1.5 system-ui,sans-serif;color:var(--ink);background:var(--paper);max-width:46rem;margin:0 auto;padding:1rem}
h1{font-size:1.4rem}h2{font-size:1.1rem;margin-top:2rem}
pre,code{font:14px/1.4 ui-monospace,monospace;overflow-wrap:anywhere;white-space:pre-wrap}
pre{background:var(--box);padding:.75rem;border-radius:.4rem}
.verdict{border-left:.4rem solid var(--good);padding:.2rem .8rem;font-weight:600}
.verdict.bad{border-color:var(--bad)}
svg{width:100%;max-width:30rem;height:auto;display:block;margin:auto}
svg rect{fill:var(--box);stroke:var(--line)}svg text{fill:var(--ink);font:13px system-ui,sans-serif}
svg .kind{font-size:10px;opacity:.75}svg path{stroke:var(--line);fill:none}
svg .failed rect{stroke:var(--bad);stroke-width:3}svg .failed .mark{fill:var(--bad);font-weight:700}
svg .end rect{stroke:var(--good);stroke-width:2}svg .end.bad rect{stroke:var(--bad)}
li.failed{color:var(--bad);font-weight:600}
@media (max-width:30rem){body{padding:.6rem;font-size:15px}}
@media print{:root{--ink:#000;--paper:#fff;--box:#fff;--line:#555;--good:#000;--bad:#000}body{max-width:none}svg,li,pre{break-inside:avoid}}
)";

std::string escaped(std::string_view text) {
    std::string out;
    for (const char c : text) {
        switch (c) {
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '&':
            out += "&amp;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += c;
        }
    }
    return out;
}

/// As much as fits a box; whole UTF-8 characters.
std::string shortened(const std::string& text) {
    constexpr std::size_t most = 46;
    if (text.size() <= most) {
        return text;
    }
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xc0U) == 0x80) {
        --end;
    }
    return text.substr(0, end) + "…";
}

/// The walk from top to bottom, a box for each step.
class Drawing {
  public:
    void add(const std::string& kind, const std::string& text, const char* classes) {
        constexpr int step = 62;
        if (y_ > margin) {
            boxes_ += fmt::format(R"(<path d="M190 {} v18 m-5 -6 l5 6 l5 -6"/>)", y_ - 18);
        }
        const bool isFailed = std::string_view(classes) == "failed";
        boxes_ += fmt::format(
            R"(<g class="{}"><title>{}</title><rect x="4" y="{}" width="372" height="44" rx="6"/>)"
            R"(<text class="kind" x="14" y="{}">{}</text><text x="14" y="{}">{}</text>{}</g>)",
            classes, escaped(text), y_, y_ + 15, escaped(kind), y_ + 34, escaped(shortened(text)),
            isFailed ? fmt::format(R"(<text class="mark" x="352" y="{}">✗</text>)", y_ + 18) : "");
        boxes_ += "\n";
        y_ += step;
    }
    std::string svg(const std::string& label) const {
        return fmt::format(
            "<svg viewBox=\"0 0 380 {}\" role=\"img\" aria-label=\"{}\">\n{}</svg>\n", y_,
            escaped(label), boxes_);
    }

  private:
    static constexpr int margin = 4;
    int y_ = margin;
    std::string boxes_;
};

std::string drawingOf(const Explanation& explanation) {
    Drawing drawing;
    drawing.add("frame",
                explanation.headers.empty() ? "nothing that can be parsed"
                                            : explanation.headers.back(),
                "start");
    for (const Explanation::Step& step : explanation.steps) {
        drawing.add(step.kind, step.text, step.isFailure ? "failed" : "passed");
    }
    drawing.add("verdict", explanation.verdict, explanation.walk.isForwarded() ? "end" : "end bad");
    return drawing.svg("The frame's walk, ending with: " + explanation.verdict);
}

std::string listOf(const std::vector<std::string>& lines) {
    std::string items;
    for (const std::string& line : lines) {
        items += fmt::format("<li>{}</li>", escaped(line));
    }
    return lines.empty() ? "" : fmt::format("<ul>{}</ul>", items);
}

std::string stepsHtml(const Explanation& explanation) {
    std::string items;
    for (const Explanation::Step& step : explanation.steps) {
        items += fmt::format("<li{}>{}{}{}</li>\n", step.isFailure ? " class=\"failed\"" : "",
                             step.isFailure ? "✗ " : "", escaped(step.text), listOf(step.details));
    }
    return fmt::format("<ol>\n{}</ol>\n", items);
}

std::string changeHtml(const Explanation& explanation) {
    if (!explanation.isChangeWanted) {
        return {};
    }
    if (!explanation.change) {
        return fmt::format("<h2>Nearest change</h2>\n<p>{}</p>\n", noChangeText(explanation.walk));
    }
    std::string commands;
    for (const std::string& command : explanation.change->commands) {
        commands += fmt::format("<pre>{}</pre>\n", escaped(command));
    }
    return fmt::format(
        "<h2>Nearest change</h2>\n{}{}<p>Tried on a copy: then the frame is {}.</p>\n", commands,
        listOf(explanation.change->notes), escaped(verdictText(explanation.change->after)));
}

std::string sentHtml(const Explanation& explanation) {
    std::string all;
    for (const Walk::Sent& sent : explanation.walk.sent) {
        all += fmt::format("<h2>Leaves by {}</h2>\n{}<pre>{}</pre>\n", escaped(sent.port),
                           listOf(parsedHeaders(sent.bytes)), hexText(sent.bytes));
    }
    return all;
}

} // namespace

std::string explanationHtml(const Explanation& explanation) {
    const std::string title =
        fmt::format("Frame of {} bytes at {}", explanation.frame.originalLength, explanation.port);
    return fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<title>{0}</title>\n<style>{1}</style>\n</head>\n<body>\n<main>\n<h1>{0}</h1>\n"
        "<p class=\"verdict{2}\">{3}</p>\n{4}{5}{6}<h2>Step by step</h2>\n"
        "<p>By generation {7} of {8}.</p>\n{9}<h2>The frame</h2>\n{10}<pre>{11}</pre>\n{12}"
        "</main>\n</body>\n</html>\n",
        escaped(title), pageStyle, explanation.walk.isForwarded() ? "" : " bad",
        escaped(explanation.verdict), listOf(explanation.remarks), changeHtml(explanation),
        drawingOf(explanation), explanation.generation,
        explanation.tables.empty() ? "the configuration's tables"
                                   : "tables " + escaped(explanation.tables),
        stepsHtml(explanation), listOf(explanation.headers), hexText(explanation.frame.bytes),
        sentHtml(explanation));
}

} // namespace OvixAgent
