#include "Columns.h"

#include <memory>

#include "Errors.h"
#include "Text.h"

namespace kst {
namespace {

constexpr unsigned kNone = 0xFFFFFFFFu;

std::string column_names(kesta& db) {
  std::string names;
  for (unsigned i = 0; i < db.get_num_fields(); ++i) {
    if (i > 0) names += ", ";
    names += db.get_fieldname(i);
  }
  return names;
}

}  // namespace

std::vector<std::string> splitList(const std::string& list) {
  std::vector<std::string> names;
  std::size_t start = 0;
  while (start <= list.size()) {
    std::size_t comma = list.find(',', start);
    if (comma == std::string::npos) comma = list.size();
    std::string name = trim(list.substr(start, comma - start));
    if (!name.empty()) names.push_back(name);
    start = comma + 1;
  }
  return names;
}

unsigned resolveColumn(kesta& db, const std::string& name, const std::string& path) {
  unsigned field = db.get_fieldnum(LightweightString<char>(name.c_str()));
  if (field == kNone) {
    throw Failure("unknown column " + inQuotes(name) + " in " + path + "; its columns are: " + column_names(db));
  }
  return field;
}

std::vector<unsigned> resolveColumns(kesta& db, const std::vector<std::string>& names, const std::string& path) {
  std::vector<unsigned> fields;
  fields.reserve(names.size());
  for (const auto& name : names) fields.push_back(resolveColumn(db, name, path));
  return fields;
}

std::vector<unsigned> fieldMapColumns(kesta& db) {
  FieldMap map(db);
  std::vector<unsigned> fields;
  for (int i = 0; i < map.numVisible(); ++i) {
    int field = map.getVisibleFieldIndex(i);
    if (field >= 0 && static_cast<unsigned>(field) < db.get_num_fields())
      fields.push_back(static_cast<unsigned>(field));
  }
  return fields;
}

std::string typeToken(DBFieldTypes::eType type) {
  LightweightString<char> token = kesta::fieldTypeToString(type);
  std::string text(token.c_str(), token.size());
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
  return text;
}

RowSource recordRows(kesta& db, const std::vector<unsigned>& fields, std::vector<unsigned> rows) {
  RowSource table;
  for (unsigned f : fields) table.headers.emplace_back(db.get_fieldname(f));
  table.rows = rows.size();
  // The record read last is held, so that the views into it stay valid until the next row.
  auto held = std::make_shared<Zr::Ptr<dbrecord>>();
  table.cells = [&db, fields, rows = std::move(rows), held](std::size_t r, std::vector<std::string_view>& out) {
    *held = db.get_record(rows[r]);
    for (unsigned f : fields) {
      const bool has = *held && f < (*held)->get_num_fields();
      out.push_back(has ? (*held)->fieldView(static_cast<unsigned short>(f)) : std::string_view());
    }
    // A record that keeps its line has its texts in it as they are: one test of the line
    // answers for every cell.
    const std::string_view line = *held ? (*held)->heldLine() : std::string_view();
    return !line.empty() && isPrintableAscii(line);
  };
  return table;
}

}  // namespace kst
