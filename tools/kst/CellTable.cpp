#include "CellTable.h"

namespace kst {

std::size_t CellTable::width(std::size_t row) const noexcept {
  row += first_;
  return row_ends_[row] - first_cell(row);
}

std::string_view CellTable::cell(std::size_t row, std::size_t column) const noexcept {
  row += first_;
  const std::size_t first = first_cell(row);
  if (column >= row_ends_[row] - first) return {};
  const std::size_t at = first + column;
  const std::size_t start = column == 0 ? 0 : cell_ends_[at - 1];
  return std::string_view(text_).substr(row_starts_[row] + start, cell_ends_[at] - start);
}

}  // namespace kst
