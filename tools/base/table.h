#pragma once

#include "base/output.h"

#include <cstddef>
#include <string>
#include <vector>

namespace KELP::Tool {

/**
 * Rows of cells under headings, in columns that are as wide as they have to be. On a terminal that
 * is too narrow, the columns that may be shortened are.
 */
class Table {
 public:
  enum class Align { Left, Right };

  struct Column {
    std::string heading;
    Align align = Align::Left;
    bool mayBeShortened = false;
  };

  struct Cell {
    // A text will do for a cell.
    // NOLINTNEXTLINE(google-explicit-constructor)
    Cell(std::string cellText, Style cellStyle = Style::Plain)
        : text(std::move(cellText)), style(cellStyle) {}

    std::string text;  ///< Escaped.
    Style style;
  };

  explicit Table(std::vector<Column> columns);

  /** @param cells one for each column. */
  void add(std::vector<Cell> cells);

  /** Prints the headings, if wanted, and the rows; nothing without rows. Throws as print(), and
   * Interrupted. */
  void print(bool withHeadings) const;

 private:
  [[nodiscard]] std::vector<std::size_t> widths(bool withHeadings) const;

  std::vector<Column> columns_;
  std::vector<std::vector<Cell>> rows_;
};

}  // namespace KELP::Tool
