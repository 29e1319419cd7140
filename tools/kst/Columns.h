#ifndef KESTA_TOOLS_KST_COLUMNS_H
#define KESTA_TOOLS_KST_COLUMNS_H
// Columns by name for the commands: looking names up with the library (ignoring case, the
// first of equal names), the columns a log's field map shows, and the grid of texts that the
// output writers print.

#include <kesta/kesta.h>

#include <string>
#include <vector>

#include "Output.h"

namespace kst {

// Splits "Reel, Start time,Scene" at commas; blanks around each name are dropped, empty
// names are skipped.
std::vector<std::string> splitList(const std::string& list);

// The column's number. Throws Failure naming the log's columns when there is none.
unsigned resolveColumn(kesta& db, const std::string& name, const std::string& path);
std::vector<unsigned> resolveColumns(kesta& db, const std::vector<std::string>& names, const std::string& path);

// The columns that the log's field map ("V5_FIELD_MAP") shows, in its order; every column
// when the log has no field map.
std::vector<unsigned> fieldMapColumns(kesta& db);

// A column's type as its header token without quotes: "timecode", "text", "c".
std::string typeToken(DBFieldTypes::eType type);

// The texts of `fields` (headers: the column names) for the rows `rows`, read from the
// records as they are rendered. `db` must outlive the answer and stay unchanged while it is read.
RowSource recordRows(kesta& db, const std::vector<unsigned>& fields, std::vector<unsigned> rows);

}  // namespace kst

#endif
