// KSTViewRep: writing a view out as a database file of its own: the view's parameters, its
// database's column header, then one record line per view row, in view order.

#include <string>

#include "support/StringUtils.h"
#include "support/TextFile.h"
#include "view/KSTViewRep.h"

namespace {

// Opens the file in memory with everything before the records: one "name:value" line per
// parameter of the view ("KESTA" among them), then the database's column header. The header
// is always the database's, all of its fields, whatever chain or field specification the view
// has. False, with nothing written, when there is nothing to save or nowhere to save it; a
// view chained without a database of its own has no header to give, so it saves nothing.
bool writeHead(KSTViewRep& view, const LightweightString<wchar_t>& name, TextFile& file) {
  kesta* database = view.database();
  if (!view.db() || !database || name.empty()) return false;
  view.write_param_lines(file);
  database->save_column_header(file, false);
  return true;
}

}  // namespace

int KSTViewRep::saveAsText(LightweightString<wchar_t> name, bool headerOnly) {
  TextFile file;
  if (!writeHead(*this, name, file)) return 0;
  int written = 0;
  if (!headerOnly) {
    const unsigned tag_field = get_fieldnum(LightweightString<char>("Tag"));
    const int rows = index_.size();
    for (int row = 0; row < rows; ++row) {
      // An entry left dangling by the deletion protocol names no record: nothing to write.
      const dbrecord* record = (*this)[row];
      if (!record) continue;
      // A copy, so the file carries the view's tags while the database's records (and their
      // changed marks) stay as they are; the copy has no container to mark.
      dbrecord copy(*record);
      if (tag_field != ~0u) {
        copy.set_field(static_cast<int>(tag_field), get_tag(static_cast<unsigned>(row)) ? "1" : "0");
      }
      if (!copy.write(file)) break;
      ++written;
    }
  }
  return file.save(name, TextFile::eEOLStyle(1)) ? written : 0;
}

int KSTViewRep::saveAsText(const char* name, bool headerOnly) {
  return saveAsText(Zr::WStringFromAscii(name), headerOnly);
}

int KSTViewRep::saveOnlyTagged(LightweightString<wchar_t> name) {
  TextFile file;
  if (!writeHead(*this, name, file)) return 0;
  // The database's own tags choose the records, not the view's flags; the records go out as
  // they are. Callers read the result as the number of view rows walked, not records written.
  const int rows = index_.size();
  int row = 0;
  for (; row < rows; ++row) {
    const dbrecord* record = (*this)[row];
    if (!record || !record->get_tag()) continue;  // a dangling entry holds nothing to write
    if (!record->write(file)) break;
  }
  return file.save(name, TextFile::eEOLStyle(1)) ? row : 0;
}

int KSTViewRep::saveOnlyTagged(const char* name) { return saveOnlyTagged(Zr::WStringFromAscii(name)); }

int KSTViewRep::save_text() { return saveAsText(file_name_, false); }
