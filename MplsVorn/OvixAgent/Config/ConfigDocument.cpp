#include "Config/ConfigDocument.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>
#include <utility>
#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

namespace OvixAgent {

namespace {

std::uint32_t lineOf(const YAML::Mark& mark) {
    return mark.line < 0 ? 1 : static_cast<std::uint32_t>(mark.line) + 1;
}

/// The parser's messages may quote a line break or other control characters of the file.
std::string onOneLine(std::string text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    std::replace_if(text.begin(), text.end(), isControl, '?');
    return text;
}

bool endsWord(char c) {
    constexpr std::string_view ends = " \t\r\n,:[]{}\"'#";
    return ends.find(c) != std::string_view::npos;
}

bool isInComment(const std::string& text, std::string::const_iterator word) {
    const auto at = static_cast<std::size_t>(word - text.begin());
    const std::size_t line = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    const std::size_t mark = text.find('#', line);
    return mark < at && (mark == line || text[mark - 1] == ' ' || text[mark - 1] == '\t');
}

/// The parser takes long for very long words, so they are refused before it sees them.
void checkSizes(const std::string& text, const std::string& file) {
    if (text.size() > ConfigLimit::bytes) {
        throw ConfigError(
            fmt::format("{}: a configuration has at most {} bytes", file, ConfigLimit::bytes));
    }
    for (auto word = text.begin(); word != text.end();) {
        const auto end = std::find_if(word, text.end(), endsWord);
        if (static_cast<std::size_t>(end - word) > ConfigLimit::wordBytes) {
            throw ConfigError(fmt::format("{}:{}: a word of {} bytes{}; it has at most {}", file,
                                          1 + std::count(text.begin(), word, '\n'), end - word,
                                          isInComment(text, word) ? " in a comment" : "",
                                          ConfigLimit::wordBytes));
        }
        word = end != text.end() ? end + 1 : end;
    }
}

} // namespace

/// Takes the parser's events. Children of the containers that are still open wait on one stack and
/// move to their final, contiguous place when their container ends.
class ConfigDocument::Builder : public YAML::EventHandler {
  public:
    explicit Builder(ConfigDocument& document) : document_(document) {}

    void OnDocumentStart(const YAML::Mark& mark) override {
        if (documents_++ > 0) {
            fail(mark, "a second YAML document begins here; only one is expected");
        }
    }
    void OnDocumentEnd() override {
        if (!waiting_.empty()) {
            document_.root_ = waiting_.front();
        }
        waiting_.clear();
    }

    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        add(mark, anchor, Kind::null);
    }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t anchor) override {
        const NodeId target = anchors_.at(anchor);
        for (const Open& open : open_) {
            if (open.node == target) {
                fail(mark, "an alias is within the node that it names");
            }
        }
        waiting_.push_back(target);
        count(mark, anchoredValues_.at(anchor));
    }
    void OnScalar(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                  const std::string& value) override {
        Node& node = add(mark, anchor, Kind::scalar);
        node.first = document_.text_.size();
        node.count = value.size();
        document_.text_ += value;
    }

    void OnSequenceStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value /*style*/) override {
        begin(mark, anchor, Kind::list);
    }
    void OnSequenceEnd() override { end(1); }
    void OnMapStart(const YAML::Mark& mark, const std::string& /*tag*/, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value /*style*/) override {
        begin(mark, anchor, Kind::map);
    }
    void OnMapEnd() override {
        end(2);
        placeNullsAtTheirKeys(document_.nodes_[waiting_.back()]);
    }

  private:
    struct Open {
        NodeId node;
        std::size_t firstWaiting;
        YAML::anchor_t anchor;
        std::uint64_t valuesBefore;
    };

    [[noreturn]] void fail(const YAML::Mark& mark, std::string_view what) const {
        throw ConfigError(fmt::format("{}:{}: {}", document_.file_, lineOf(mark), what));
    }

    Node& add(const YAML::Mark& mark, YAML::anchor_t anchor, Kind kind) {
        count(mark, 1);
        const auto id = static_cast<NodeId>(document_.nodes_.size());
        if (anchor != 0) {
            anchors_.resize(std::max<std::size_t>(anchors_.size(), anchor + 1));
            anchors_[anchor] = id;
            anchoredValues_.resize(anchors_.size());
            anchoredValues_[anchor] = 1;
        }
        waiting_.push_back(id);
        Node& node = document_.nodes_.emplace_back();
        node.kind = kind;
        node.line = lineOf(mark);
        return node;
    }
    void begin(const YAML::Mark& mark, YAML::anchor_t anchor, Kind kind) {
        add(mark, anchor, kind);
        if (open_.size() == ConfigLimit::depth) {
            fail(mark, fmt::format("lists and maps are nested more than {} deep; a configuration "
                                   "needs fewer",
                                   ConfigLimit::depth));
        }
        open_.push_back({waiting_.back(), waiting_.size(), anchor, values_ - 1});
    }
    void end(std::size_t nodesPerEntry) {
        const Open open = open_.back();
        open_.pop_back();
        if (open.anchor != 0) {
            anchoredValues_[open.anchor] = values_ - open.valuesBefore;
        }
        const auto from = waiting_.begin() + static_cast<std::ptrdiff_t>(open.firstWaiting);
        Node& node = document_.nodes_[open.node];
        node.first = document_.children_.size();
        node.count = (waiting_.size() - open.firstWaiting) / nodesPerEntry;
        document_.children_.insert(document_.children_.end(), from, waiting_.end());
        waiting_.erase(from, waiting_.end());
    }

    void count(const YAML::Mark& mark, std::uint64_t values) {
        values_ += values;
        if (values_ > ConfigLimit::values) {
            fail(mark, fmt::format("a configuration has at most {} values, those behind an alias "
                                   "counted each time",
                                   ConfigLimit::values));
        }
    }

    /// The parser reports a null at the place of what follows it.
    void placeNullsAtTheirKeys(const Node& map) {
        for (std::size_t i = map.first; i < map.first + 2 * map.count; i += 2) {
            Node& value = document_.nodes_[document_.children_[i + 1]];
            if (value.kind == Kind::null) {
                value.line = document_.nodes_[document_.children_[i]].line;
            }
        }
    }

    ConfigDocument& document_;
    std::vector<NodeId> anchors_;               ///< by the parser's number, which counts from 1
    std::vector<std::uint64_t> anchoredValues_; ///< likewise: of the node with all beneath it
    std::uint64_t values_ = 0;                  ///< so far
    std::vector<NodeId> waiting_;
    std::vector<Open> open_;
    std::size_t documents_ = 0;
};

ConfigDocument ConfigDocument::parse(const std::string& text, std::string file) {
    ConfigDocument document;
    checkSizes(text, file);
    document.file_ = std::move(file);
    Builder builder(document);
    // The parser accepts a quoted text without its closing quote when a line break comes last.
    std::istringstream stream(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
    try {
        YAML::Parser parser(stream);
        while (parser.HandleNextDocument(builder)) {
        }
    } catch (const YAML::Exception& error) {
        throw ConfigError(fmt::format("{}:{}: not valid YAML: {} (column {})", document.file_,
                                      lineOf(error.mark), onOneLine(error.msg),
                                      error.mark.column + 1));
    }
    if (document.nodes_.empty()) {
        document.nodes_.push_back({0, 0, 1, Kind::null});
    }
    return document;
}

} // namespace OvixAgent
