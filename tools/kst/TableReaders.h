#ifndef KESTA_TOOLS_KST_TABLEREADERS_H
#define KESTA_TOOLS_KST_TABLEREADERS_H
// Readers of the plain tables that 'kst convert' turns into logs: RFC 4180 CSV (what
// spreadsheets write), TSV with \t \n \r \\ escapes, and JSON (an array of objects whose values
// are texts). Each answers the column names and the rows, every row as long as the header, and
// throws Failure with the line where the input goes wrong.
//
//   kst::InputTable t = kst::readCsv(kst::readBytes("sheet.csv"), "sheet.csv");

#include <string>
#include <vector>

#include "CellTable.h"

namespace kst {

struct InputTable {
  std::vector<std::string> headers;  // the column names
  CellTable rows;                    // the records
  std::vector<unsigned> lines;       // the line each record starts on, 1-based
};

// The first record holds the column names. Quotes are removed; quoted commas, quotes and line
// breaks stay inside their field; blanks around fields are kept. A leading UTF-8 byte-order
// mark is dropped and blank lines are skipped. A record with fewer fields than the header is
// filled with empty ones; one with more (other than empty ones) is an error, as is broken
// quoting.
InputTable readCsv(const std::string& bytes, const std::string& path);

// The first line holds the column names, fields are separated by tabs, and \t \n \r \\ stand
// for tab, line feed, carriage return and backslash. Row lengths as for CSV.
InputTable readTsv(const std::string& bytes, const std::string& path);

// An array of objects; the columns are the keys in the order they are first seen. Values are
// strings; numbers and true/false keep their text, null is empty. Anything else is an error.
InputTable readJson(const std::string& bytes, const std::string& path);

}  // namespace kst

#endif
