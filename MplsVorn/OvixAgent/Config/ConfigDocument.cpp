#include "Config/ConfigDocument.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <utility>
#include <yaml.h>

namespace OvixAgent {

namespace {

std::uint32_t lineOf(const yaml_mark_t& mark) noexcept {
    return static_cast<std::uint32_t>(mark.line) + 1;
}

/// The parser of YAML, event by event.
class Parser {
  public:
    Parser(std::string_view text, const std::string& file) : text_(text), file_(&file) {
        if (yaml_parser_initialize(&parser_) == 0) {
            throw std::bad_alloc();
        }
        yaml_parser_set_input_string(&parser_, reinterpret_cast<const unsigned char*>(text.data()),
                                     text.size());
    }
    Parser(const Parser&) = delete;
    Parser& operator=(const Parser&) = delete;
    ~Parser() {
        yaml_event_delete(&event_);
        yaml_parser_delete(&parser_);
    }

    /// The next event, until there is another. Throws ConfigError.
    const yaml_event_t& next() {
        yaml_event_delete(&event_);
        if (yaml_parser_parse(&parser_, &event_) == 0) {
            fail();
        }
        return event_;
    }

  private:
    [[noreturn]] void fail() const {
        if (parser_.error == YAML_MEMORY_ERROR) {
            throw std::bad_alloc();
        }
        if (parser_.error == YAML_READER_ERROR) { // which knows bytes alone
            const auto before = text_.substr(0, parser_.problem_offset);
            throw ConfigError(fmt::format("{}:{}: not valid YAML: {}", *file_,
                                          1 + std::count(before.begin(), before.end(), '\n'),
                                          parser_.problem));
        }
        // What never ends is sought where it begins.
        const bool isAtEnd =
            parser_.problem_mark.index >= text_.size() && parser_.context != nullptr;
        const yaml_mark_t& mark = isAtEnd ? parser_.context_mark : parser_.problem_mark;
        throw ConfigError(
            fmt::format("{}:{}: not valid YAML: {}{}{} (column {})", *file_, lineOf(mark),
                        parser_.context != nullptr ? parser_.context : "",
                        parser_.context != nullptr ? ", " : "", parser_.problem, mark.column + 1));
    }

    std::string_view text_;
    const std::string* file_;
    yaml_parser_t parser_{};
    yaml_event_t event_{};
};

std::string_view textOf(const yaml_char_t* text, std::size_t size) noexcept {
    return {reinterpret_cast<const char*>(text), size};
}
/// The name of an anchor; empty when there is none.
std::string_view anchorOf(const yaml_char_t* name) noexcept {
    return name != nullptr ? std::string_view(reinterpret_cast<const char*>(name))
                           : std::string_view();
}

/// A scalar without quotes that means nothing.
bool isNull(std::string_view text, bool isPlain) noexcept {
    return isPlain &&
           (text.empty() || text == "~" || text == "null" || text == "Null" || text == "NULL");
}

} // namespace

/// Takes the parser's events. Children of the containers that are still open wait on one stack and
/// move to their final, contiguous place when their container ends.
class ConfigDocument::Builder {
  public:
    explicit Builder(ConfigDocument& document) : document_(document) {}

    /// False at the end of the text.
    bool take(const yaml_event_t& event) {
        const yaml_mark_t& mark = event.start_mark;
        switch (event.type) {
        case YAML_DOCUMENT_START_EVENT:
            startDocument(mark);
            break;
        case YAML_DOCUMENT_END_EVENT:
            document_.root_ = waiting_.front();
            waiting_.clear();
            break;
        case YAML_ALIAS_EVENT:
            addAlias(mark, anchorOf(event.data.alias.anchor));
            break;
        case YAML_SCALAR_EVENT:
            addScalar(mark, event);
            break;
        case YAML_SEQUENCE_START_EVENT:
            begin(mark, anchorOf(event.data.sequence_start.anchor), Kind::list);
            break;
        case YAML_MAPPING_START_EVENT:
            begin(mark, anchorOf(event.data.mapping_start.anchor), Kind::map);
            break;
        case YAML_SEQUENCE_END_EVENT:
            end(1);
            break;
        case YAML_MAPPING_END_EVENT:
            end(2);
            break;
        default:
            break;
        }
        return event.type != YAML_STREAM_END_EVENT;
    }

  private:
    /// A node that has a name, and how many values it and all beneath it have.
    struct Anchored {
        NodeId node;
        std::uint64_t values;
    };
    struct Open {
        NodeId node;
        std::size_t firstWaiting;
        Anchored* anchored; ///< null without an anchor
        std::uint64_t valuesBefore;
    };

    void startDocument(const yaml_mark_t& mark) {
        if (documents_++ > 0) {
            fail(mark, "a second YAML document begins here; only one is expected");
        }
    }
    void addAlias(const yaml_mark_t& mark, std::string_view name) {
        const auto target = anchors_.find(name);
        if (target == anchors_.end()) {
            fail(mark, fmt::format("not valid YAML: there is no anchor \"{}\" before", name));
        }
        for (const Open& open : open_) {
            if (open.node == target->second.node) {
                fail(mark, "an alias is within the node that it names");
            }
        }
        waiting_.push_back(target->second.node);
        count(mark, target->second.values);
    }
    void addScalar(const yaml_mark_t& mark, const yaml_event_t& event) {
        const auto& scalar = event.data.scalar;
        const std::string_view text = textOf(scalar.value, scalar.length);
        const std::string_view anchor = anchorOf(scalar.anchor);
        if (text.size() > ConfigLimit::textBytes) {
            fail(mark, fmt::format("a text of {} bytes; it has at most {}", text.size(),
                                   ConfigLimit::textBytes));
        }
        if (isNull(text, scalar.style == YAML_PLAIN_SCALAR_STYLE)) {
            add(mark, anchor, Kind::null);
            return;
        }
        add(mark, anchor, Kind::scalar);
        Node& node = document_.nodes_.back();
        node.first = static_cast<std::uint32_t>(document_.text_.size());
        node.count = static_cast<std::uint32_t>(text.size());
        document_.text_ += text;
    }

    [[noreturn]] void fail(const yaml_mark_t& mark, std::string_view what) const {
        throw ConfigError(fmt::format("{}:{}: {}", document_.file_, lineOf(mark), what));
    }

    /// Returns what is known of its anchor; null without one.
    Anchored* add(const yaml_mark_t& mark, std::string_view anchor, Kind kind) {
        count(mark, 1);
        const auto id = static_cast<NodeId>(document_.nodes_.size());
        waiting_.push_back(id);
        document_.nodes_.push_back({0, 0, lineOf(mark), kind});
        return anchor.empty()
                   ? nullptr
                   : &anchors_.insert_or_assign(std::string(anchor), Anchored{id, 1}).first->second;
    }
    void begin(const yaml_mark_t& mark, std::string_view anchor, Kind kind) {
        if (open_.size() == ConfigLimit::depth) {
            fail(mark, fmt::format("lists and maps are nested more than {} deep; a configuration "
                                   "needs fewer",
                                   ConfigLimit::depth));
        }
        Anchored* const anchored = add(mark, anchor, kind);
        open_.push_back({waiting_.back(), waiting_.size(), anchored, values_ - 1});
    }
    void end(std::size_t nodesPerEntry) {
        const Open open = open_.back();
        open_.pop_back();
        if (open.anchored != nullptr) {
            open.anchored->values = values_ - open.valuesBefore;
        }
        const auto from = waiting_.begin() + static_cast<std::ptrdiff_t>(open.firstWaiting);
        Node& node = document_.nodes_[open.node];
        node.first = static_cast<std::uint32_t>(document_.children_.size());
        node.count =
            static_cast<std::uint32_t>((waiting_.size() - open.firstWaiting) / nodesPerEntry);
        document_.children_.insert(document_.children_.end(), from, waiting_.end());
        waiting_.erase(from, waiting_.end());
    }

    void count(const yaml_mark_t& mark, std::uint64_t values) {
        values_ += values;
        if (values_ > ConfigLimit::values) {
            fail(mark, fmt::format("a configuration has at most {} values, those behind an alias "
                                   "counted each time",
                                   ConfigLimit::values));
        }
    }

    ConfigDocument& document_;
    std::map<std::string, Anchored, std::less<>> anchors_; ///< by name, the last one of it
    std::uint64_t values_ = 0;                             ///< so far
    std::vector<NodeId> waiting_;
    std::vector<Open> open_;
    std::size_t documents_ = 0;
};

ConfigDocument ConfigDocument::parse(const std::string& text, std::string file,
                                     const std::stop_token& stop) {
    ConfigDocument document;
    document.file_ = std::move(file);
    if (text.size() > ConfigLimit::bytes) {
        throw ConfigError(fmt::format("{}: a configuration has at most {} bytes", document.file_,
                                      ConfigLimit::bytes));
    }
    Builder builder(document);
    // An error at the end is reported where the last text is.
    const std::string_view used(text.data(), text.find_last_not_of(" \t\r\n") + 1);
    Parser parser(used, document.file_);
    while (builder.take(parser.next())) {
        if (stop.stop_requested()) {
            throw ConfigError(document.file_ + ": not read to its end");
        }
    }
    if (document.nodes_.empty()) {
        document.nodes_.push_back({0, 0, 1, Kind::null});
    }
    return document;
}

} // namespace OvixAgent
