#include <fmt/format.h>

#include "Explain/Explanation.h"
#include "State/RoadSteps.h"

namespace OvixAgent {

namespace {

/// Lines with the branches of a tree in front.
class Tree {
  public:
    void root(const std::string& line) { text_ += line + "\n"; }
    void branch(const std::string& line, bool isLast, bool isFailure = false) {
        text_ += fmt::format("{} {}{}\n", isLast ? "└─" : "├─", isFailure ? "✗ " : "", line);
        stem_ = isLast ? "   " : "│  ";
    }
    void leaf(const std::string& line, bool isLast) {
        text_ += fmt::format("{} {} {}\n", stem_, isLast ? "└─" : "├─", line);
    }
    void leaves(const std::vector<std::string>& lines) {
        for (std::size_t i = 0; i < lines.size(); ++i) {
            leaf(lines[i], i + 1 == lines.size());
        }
    }
    void indented(const std::string& lines) {
        std::size_t from = 0;
        while (from < lines.size()) {
            const std::size_t end = std::min(lines.find('\n', from), lines.size());
            text_ += "    " + lines.substr(from, end - from) + "\n";
            from = end + 1;
        }
    }
    std::string take() { return std::move(text_); }

  private:
    std::string text_;
    std::string stem_;
};

void addFrame(Tree& tree, const Explanation& explanation) {
    tree.root(
        fmt::format("frame: {} bytes at {}", explanation.frame.originalLength, explanation.port));
    for (std::size_t i = 0; i < explanation.headers.size(); ++i) {
        tree.branch(explanation.headers[i], i + 1 == explanation.headers.size());
    }
}

void addSteps(Tree& tree, const Explanation& explanation) {
    tree.root(fmt::format("road, by generation {} of {}:", explanation.generation,
                          explanation.tables.empty() ? "the configuration's tables"
                                                     : "tables \"" + explanation.tables + "\""));
    for (std::size_t i = 0; i < explanation.steps.size(); ++i) {
        const Explanation::Step& step = explanation.steps[i];
        tree.branch(step.text, i + 1 == explanation.steps.size(), step.isFailure);
        tree.leaves(step.details);
    }
}

void addSent(Tree& tree, const Explanation& explanation) {
    for (std::size_t i = 0; i < explanation.walk.sent.size(); ++i) {
        const Walk::Sent& sent = explanation.walk.sent[i];
        tree.branch(sent.port, i + 1 == explanation.walk.sent.size());
        tree.leaves(parsedHeaders(sent.bytes));
    }
}

void addChange(Tree& tree, const Explanation& explanation) {
    if (!explanation.isChangeWanted) {
        return;
    }
    if (!explanation.change) {
        tree.root(fmt::format("nearest change: {}", noChangeText(explanation.walk)));
        return;
    }
    tree.root("nearest change, tried on a copy: then the frame is " +
              verdictText(explanation.change->after));
    for (const std::string& command : explanation.change->commands) {
        tree.indented(command);
    }
    for (const std::string& note : explanation.change->notes) {
        tree.root("  (" + note + ")");
    }
}

std::string_view fastRoadText(TrialRouter::FastRoad road) {
    switch (road) {
    case TrialRouter::FastRoad::same:
        return "the same";
    case TrialRouter::FastRoad::differs:
        return "DIFFERS: please report this";
    case TrialRouter::FastRoad::leaves:
        break;
    }
    return "leaves such frames to the full road";
}

} // namespace

std::string explanationText(const Explanation& explanation) {
    Tree tree;
    addFrame(tree, explanation);
    for (const std::string& remark : explanation.remarks) {
        tree.root("  (" + remark + ")");
    }
    addSteps(tree, explanation);
    tree.root("verdict: " + explanation.verdict);
    addSent(tree, explanation);
    tree.root(fmt::format("fast path: {}", fastRoadText(explanation.fastRoad)));
    addChange(tree, explanation);
    return tree.take();
}

} // namespace OvixAgent
