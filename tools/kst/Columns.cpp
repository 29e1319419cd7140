#include "Columns.h"

#include "Errors.h"

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

Grid recordGrid(kesta& db, const std::vector<unsigned>& fields, const std::vector<unsigned>& rows) {
  Grid grid;
  for (unsigned f : fields) grid.headers.emplace_back(db.get_fieldname(f));
  grid.rows.reserve(rows.size());
  for (unsigned r : rows) {
    std::vector<std::string> cells;
    cells.reserve(fields.size());
    for (unsigned f : fields) {
      LightweightString<char> text = db.getField(r, f);
      cells.emplace_back(text.c_str(), text.size());
    }
    grid.rows.push_back(std::move(cells));
  }
  return grid;
}

}  // namespace kst
