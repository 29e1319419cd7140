#ifndef KESTA_TOOLS_KST_CELLTABLE_H
#define KESTA_TOOLS_KST_CELLTABLE_H
// A table read from a file, its cells in one buffer.
//
//   kst::CellTable rows;
//   rows.append("A001"); rows.endCell(); rows.endCell(); rows.endRow();   // "A001", ""
//   rows.cell(0, 0) == "A001" && rows.cell(0, 5).empty()

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kst {

// Rows of texts kept in one buffer, so that a table of a million rows is not a million vectors
// of strings. A row may hold fewer cells than another; the missing ones read as empty.
class CellTable {
 public:
  std::size_t rows() const noexcept { return row_ends_.size() - first_; }
  // The cells of `row`, and cell `column` of it ("" past its end).
  std::size_t width(std::size_t row) const noexcept;
  std::string_view cell(std::size_t row, std::size_t column) const noexcept;

  // Room for the cells of an input of `bytes` whose cell texts are no longer than it (quotes
  // and escapes only shrink). Room never filled is never touched, so a generous guess costs
  // nothing, and a large table is not copied as it grows.
  void reserveFor(std::size_t bytes) {
    constexpr std::size_t kLeastCellBytes = 8;  // cells are rarely shorter, separator included
    text_.reserve(bytes);
    cell_ends_.reserve(bytes / kLeastCellBytes);
  }
  // Building: the bytes of the cell being made, then its end, then the row's end. endCell is
  // false, and ends nothing, for a cell that would end more than 4 GB after its row's start.
  void append(char c) { text_ += c; }
  void append(std::string_view bytes) { text_.append(bytes); }
  [[nodiscard]] bool endCell() {
    const std::size_t end = text_.size() - row_start_;
    if (end > UINT32_MAX) return false;
    cell_ends_.push_back(static_cast<uint32_t>(end));
    return true;
  }
  void endRow() {
    row_ends_.push_back(cell_ends_.size());
    row_starts_.push_back(row_start_);
    row_start_ = text_.size();
  }
  // The first row is no longer one of the rows (its cells stay readable until then).
  void dropFirstRow() noexcept { ++first_; }

 private:
  std::size_t first_cell(std::size_t row) const noexcept { return row == 0 ? 0 : row_ends_[row - 1]; }

  std::string text_;
  // Where each cell's bytes end in text_, from its row's start: half the room of a full offset,
  // for tables of tens of millions of cells.
  std::vector<uint32_t> cell_ends_;
  std::vector<std::size_t> row_ends_;    // the number of cells up to each row's end
  std::vector<std::size_t> row_starts_;  // where each row's bytes start in text_
  std::size_t row_start_ = 0;            // where the open row's bytes start
  std::size_t first_ = 0;                // rows dropped from the front
};

}  // namespace kst

#endif
