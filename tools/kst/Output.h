#ifndef KESTA_TOOLS_KST_OUTPUT_H
#define KESTA_TOOLS_KST_OUTPUT_H
// Rendering a table of texts (a header row and data rows) as an aligned table, RFC 4180 CSV,
// TSV or JSON. Nothing here knows about logs: a small table is a Grid held whole; a log's
// records come as a RowSource, a row at a time, and the text goes out in pieces.
//
//   kst::Grid grid{{"Reel", "Scene"}, {{"A001", "12"}}};
//   std::cout << kst::render(grid, kst::Format::kCsv, 0);   // "Reel,Scene\r\nA001,12\r\n"
//   kst::render(kst::recordRows(db, fields, rows), kst::Format::kCsv, 0, kst::writeStdout);
//
// Texts are bytes, normally UTF-8. The table counts one column per code point; JSON output is
// always valid UTF-8, with a byte that is not part of a UTF-8 sequence read as Latin-1.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kst {

enum class Format { kTable, kCsv, kTsv, kJson };

// The names accepted by --format (and --from/--to): "table", "csv", "tsv", "json".
std::vector<std::string> formatNames();
// REQUIRES: `name` is one of formatNames().
Format formatFromName(const std::string& name);

struct Grid {
  std::vector<std::string> headers;
  std::vector<std::vector<std::string>> rows;  // each as long as `headers`
};

// A table whose rows are made one at a time, so that a large one is never held whole in
// memory: cells(r, out) fills `out` with row r's texts, one per header, which stay valid until
// the next call. It answers true when it knows, from one look at the row, that every text is
// printable ASCII (0x20 to 0x7e), which spares the table a test of each; false says nothing.
struct RowSource {
  std::vector<std::string> headers;
  std::size_t rows = 0;
  std::function<bool(std::size_t row, std::vector<std::string_view>& out)> cells;
};

// Where rendered text goes, a piece at a time.
using TextSink = std::function<void(std::string_view)>;

// One CSV field: quoted (quotes doubled) when it holds a comma, a quote or a line break.
std::string csvField(std::string_view text);
// One TSV field: tab, line feed, carriage return and backslash written as \t \n \r \\.
std::string tsvField(std::string_view text);
// Appends `text` as a JSON string literal, quotes included.
void appendJsonString(std::string& out, std::string_view text);

// CSV with CRLF line ends (RFC 4180); the header is the first record.
std::string renderCsv(const Grid& grid);
// Tab-separated, LF line ends; the header is the first line.
std::string renderTsv(const Grid& grid);
// An array with one object per row, keys in header order.
std::string renderJson(const Grid& grid);
// An aligned table: header, a rule, the rows. With `width` above 0 the widest columns are
// narrowed (cut texts end in "…") so that a line fits in `width` code points; columns that
// would be narrower than 8 are left out from the right, and a last line says how many.
// Control characters in cells show as \n, \t, \r or \xNN.
std::string renderTable(const Grid& grid, unsigned width);
std::string render(const Grid& grid, Format format, unsigned width);
// The same, streamed: a table reads its rows twice (widths first), the other formats once.
void render(const RowSource& table, Format format, unsigned width, const TextSink& out);

// The width of the terminal on standard output; 0 when standard output is not a terminal.
unsigned terminalWidth();

// The number of code points in `text` (each byte that is not UTF-8 counts as one).
std::size_t displayWidth(std::string_view text);

}  // namespace kst

#endif
