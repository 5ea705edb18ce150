#include "base/table.h"

#include "base/interrupt.h"
#include "base/text.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace KELP::Tool {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 8;

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::add(std::vector<Cell> cells) {
  rows_.push_back(std::move(cells));
}

void Table::print(bool withHeadings) const {
  if (rows_.empty()) {
    return;
  }
  const std::vector<std::size_t> width = widths(withHeadings);
  const auto printRow = [&](const std::vector<Cell>& cells) {
    std::string line;
    for (std::size_t at = 0; at < columns_.size(); ++at) {
      const std::string text = shortened(cells[at].text, width[at]);
      const std::string padding(width[at] - std::min(width[at], columnsOf(text)), ' ');
      const std::string cell = styled(text, cells[at].style);
      const bool isLast = at + 1 == columns_.size();
      if (columns_[at].align == Align::Right) {
        line += padding + cell;
      } else {
        line += isLast ? cell : cell + padding;
      }
      line += isLast ? "\n" : std::string(kGap, ' ');
    }
    Tool::print(line);
  };
  if (withHeadings) {
    std::vector<Cell> headings;
    for (const Column& column : columns_) {
      headings.emplace_back(column.heading, Style::Bold);
    }
    printRow(headings);
  }
  for (const std::vector<Cell>& row : rows_) {
    checkInterrupt();
    printRow(row);
  }
}

std::vector<std::size_t> Table::widths(bool withHeadings) const {
  std::vector<std::size_t> width(columns_.size());
  for (std::size_t at = 0; at < columns_.size(); ++at) {
    width[at] = withHeadings ? columnsOf(columns_[at].heading) : 0;
    for (const std::vector<Cell>& row : rows_) {
      width[at] = std::max(width[at], columnsOf(row[at].text));
    }
  }
  if (!outputIsTerminal()) {
    return width;
  }
  // Take from the widest column that may be shortened until the row fits.
  std::size_t total = std::accumulate(width.begin(), width.end(), kGap * (width.size() - 1));
  while (total > terminalColumns()) {
    std::size_t* widest = nullptr;
    for (std::size_t at = 0; at < columns_.size(); ++at) {
      if (columns_[at].mayBeShortened && width[at] > kNarrowest &&
          (widest == nullptr || width[at] > *widest)) {
        widest = &width[at];
      }
    }
    if (widest == nullptr) {
      break;
    }
    --*widest;
    --total;
  }
  return width;
}

}  // namespace KELP::Tool
