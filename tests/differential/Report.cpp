#include "Report.h"

#include <algorithm>
#include <fmt/format.h>

#include "Hex.h"

namespace Differential {

namespace {

std::string textOf(const ScriptFrame& frame, const Script& script) {
    return fmt::format("    {} at {}, {} bytes, {} more on the wire, headroom {}: {}\n",
                       Tessel::wordOf(frame.kind), script.configs.front().ports[frame.port].name,
                       frame.bytes.size(), frame.snapped, frame.headroom, hexOf(frame.bytes));
}

std::string textOf(const Step& step, const Script& script) {
    if (step.change) {
        return "  " + step.text + "\n";
    }
    std::string text = fmt::format("  burst of {}{}\n", step.frames.size(),
                                   step.looksAtCounters ? ", then counters" : "");
    for (const ScriptFrame& frame : step.frames) {
        text += textOf(frame, script);
    }
    return text;
}

/// The lines of one road that the other does not have.
std::string linesOnlyIn(const std::vector<std::string>& lines,
                        const std::vector<std::string>& others, std::string_view mark) {
    std::string text;
    std::vector<std::string> left = others;
    std::string last;
    for (const std::string& line : lines) {
        const auto found = std::find(left.begin(), left.end(), line);
        if (found != left.end()) {
            left.erase(found);
        } else {
            text += fmt::format("{}{}{}\n", mark, line,
                                line.starts_with(' ') ? "   (of " + last + ")" : "");
        }
        last = line.starts_with(' ') ? last : line;
    }
    return text;
}

/// The first one, and those that a step goes over to.
bool isUsed(const Script& script, std::size_t config) {
    const std::string text = fmt::format("configuration {}", config);
    return config == 0 || std::any_of(script.steps.begin(), script.steps.end(),
                                      [&](const Step& step) { return step.text == text; });
}

} // namespace

std::string reportOf(const Script& script, Fault fault) {
    std::string text = fmt::format("the roads differ: seed {}, live {}, any-mac {}\n", script.seed,
                                   script.isLive, script.anyMac);
    for (std::size_t i = 0; i < script.texts.size(); ++i) {
        if (isUsed(script, i)) {
            text += fmt::format("configuration {}:\n{}", i, script.texts[i]);
        }
    }
    text += "steps:\n";
    for (const Step& step : script.steps) {
        text += textOf(step, script);
    }
    return text + "what the last step makes of it, - by the definition, + by the fast path:\n" +
           differenceOf(script, fault);
}

std::string differenceOf(const Script& script, Fault fault) {
    const std::size_t last = script.steps.size() - 1;
    const auto definition = whatHappens(script, Road::definition, Fault::none, last);
    const auto fast = whatHappens(script, Road::fast, fault, last);
    const std::string text =
        linesOnlyIn(definition, fast, "- ") + linesOnlyIn(fast, definition, "+ ");
    return text.empty() ? "another order\n" : text;
}

std::string kindOf(const std::string& difference) {
    std::string kind;
    bool isDetail = false; // numbers and bytes, and what follows them in the line
    for (const char c : difference) {
        isDetail = c != '\n' && (isDetail || (c >= '0' && c <= '9'));
        if (!isDetail) {
            kind += c;
        }
    }
    return kind;
}

namespace {

std::string shareOf(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? "-"
                      : fmt::format("{:.1f}%",
                                    100.0 * static_cast<double>(part) / static_cast<double>(whole));
}

} // namespace

std::string tableOf(const Coverage& coverage) {
    std::string text = fmt::format("{:<22}{:>10}{:>12}{:>8}{:>14}{:>8}\n", "traffic", "frames",
                                   "came alone", "fast", "left of them", "fast");
    for (std::size_t i = 0; i < trafficKinds; ++i) {
        const KindCounts& kind = coverage.kinds[i];
        text += fmt::format("{:<22}{:>10}{:>12}{:>8}{:>14}{:>8}\n",
                            Tessel::wordOf(static_cast<Traffic>(i)), kind.frames, kind.alone,
                            shareOf(kind.aloneFast, kind.alone), kind.left,
                            shareOf(kind.leftFast, kind.left));
    }
    text += "\nfates\n";
    for (const auto& [fate, frames] : coverage.fates) {
        text += fmt::format("{:>12}  {}\n", frames, fate);
    }
    return text + fmt::format("\nin all: {} frames by the fast path, {} by the definition\n",
                              coverage.fast, coverage.slow);
}

} // namespace Differential
