#include "route/TextTable.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace OvixCtl {

TextTable::TextTable(std::vector<Column> columns)
    : columns_(std::move(columns)), widths_(columns_.size(), 1) {
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        widths_[i] = columns_[i].heading.size();
    }
}

void TextTable::measure(const Cells& cells) {
    assert(cells.size() == columns_.size());
    for (std::size_t i = 0; i < widths_.size(); ++i) {
        widths_[i] = std::max(widths_[i], cells[i].size());
    }
}

std::string TextTable::heading() const {
    Cells cells;
    for (const Column& column : columns_) {
        cells.push_back(column.heading);
    }
    return line(cells);
}

std::string TextTable::line(const Cells& cells) const {
    assert(cells.size() == columns_.size());
    std::string text;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const std::string cell = cells[i].empty() ? "-" : cells[i];
        const std::string space(widths_[i] - std::min(widths_[i], cell.size()), ' ');
        text += i == 0 ? "" : "  ";
        text += columns_[i].align == Align::right ? space + cell : cell + space;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text + "\n";
}

} // namespace OvixCtl
