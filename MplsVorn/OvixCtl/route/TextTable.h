#pragma once

#include <string>
#include <vector>

namespace OvixCtl {

/// Aligned columns. Each line is given twice, to measure() and to line(), so that a million of them
/// need not be kept.
class TextTable {
  public:
    enum class Align : unsigned char { left, right };
    struct Column {
        std::string heading;
        Align align = Align::left;
    };
    using Cells = std::vector<std::string>;

    explicit TextTable(std::vector<Column> columns);

    /// One cell per column; an empty one is printed as "-".
    void measure(const Cells& cells);
    std::string heading() const;
    std::string line(const Cells& cells) const;

  private:
    std::vector<Column> columns_;
    std::vector<std::size_t> widths_;
};

} // namespace OvixCtl
