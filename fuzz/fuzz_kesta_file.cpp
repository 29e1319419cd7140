// The database file loader, both the native format and ".csv" input, on arbitrary bytes; then
// the save of whatever loaded, and for a native file whose texts the format carries exactly,
// a reload that must give back the same parameters, columns and records.

#include <strings.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/FuzzChecks.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFileSystem.h"
#include "record/kesta.h"

namespace {

using fuzzing::carried;
using fuzzing::check;

// Record fields: quotes are doubled and line feeds escaped; backslashes and carriage returns
// are not carried exactly, nor white space at the start of a field (a loaded field may begin
// with it when text follows a closing quote, and the reader drops it from a quoted field); a
// first field "KESTA" reads as a repeated header; and a record of another width (a repeated
// header loads the line after it whatever its width) ends a load.
bool recordCarried(const dbrecord& record, unsigned columns) {
  if (record.get_num_fields() != columns) return false;
  // A record without fields is written as an empty line, which a reader takes for the end of
  // the records (a log without columns can read one from a line of control characters).
  if (columns == 0) return false;
  if (record.get_num_fields() > 0 && strcasecmp(record.get_field(0), "KESTA") == 0) return false;
  for (unsigned short f = 0; f < record.get_num_fields(); ++f) {
    const std::string_view text = record.getField(f).view();
    if (!text.empty() && (text[0] == ' ' || (text[0] >= '\t' && text[0] <= '\r'))) return false;
    for (char c : text) {
      if (c == '\\' || c == '\r') return false;
    }
  }
  return true;
}

void checkLoaded(kesta& db, bool csv, int max_records) {
  fuzzing::checkDatabase(db);
  if (!db.get_valid()) {
    check(db.get_num_fields() == 0 && db.get_num_records() == 0, "an invalid load is empty");
    return;
  }
  if (csv) {
    for (unsigned f = 0; f < db.get_num_fields(); ++f) {
      check(db.get_field_type(f) == DBFieldTypes::kTextS, "csv columns are text_s");
    }
    return;
  }
  check(db.num_params() > 0, "a valid file has parameters");
  check(db.get_num_records() <= static_cast<unsigned>(max_records), "record limit");
  check(db.changed() == 0, "a load ends unchanged");
  for (unsigned row = 0; row < db.get_num_records(); ++row) {
    check(!db.get_record(row)->changed(), "loaded record unchanged");
  }
}

// After a save, a reload must see what was saved, wherever the format carries it exactly.
void checkReload(kesta& saved, const LightweightString<wchar_t>& name) {
  bool header_carried = true;
  for (const Zr::AttribValuePair& pair : saved.params()) {
    header_carried = header_carried && carried(pair.name(), 4000) && carried(pair.value(), 4000);
  }
  for (unsigned f = 0; f < saved.get_num_fields(); ++f) {
    // A type without a token is written as its own character, unescaped.
    const LightweightString<char> token = kesta::fieldTypeToString(saved.get_field_type(f));
    header_carried = header_carried && carried(saved.fields()[f].name, 250) &&
                     carried(LightweightString<char>(token.view().substr(1, token.size() - 2)), 250);
  }
  if (!header_carried) return;

  Zr::Ptr<kesta> back(new kesta(name, INT_MAX, true));
  check(back->get_valid() == 1, "reload valid");
  check(back->num_params() == saved.num_params(), "reload parameters");
  for (unsigned i = 0; i < saved.num_params(); ++i) {
    check(
        back->params()[i].name() == saved.params()[i].name() && back->params()[i].value() == saved.params()[i].value(),
        "reload parameter", std::to_string(i));
  }
  check(back->get_num_fields() == saved.get_num_fields(), "reload columns");
  for (unsigned f = 0; f < saved.get_num_fields(); ++f) {
    check(std::string(back->get_fieldname(f)) == saved.get_fieldname(f), "reload column name", std::to_string(f));
    check(back->get_field_type(f) == saved.get_field_type(f), "reload column type", std::to_string(f));
  }
  for (unsigned row = 0; row < saved.get_num_records(); ++row) {
    if (!recordCarried(*saved.get_record(row), saved.get_num_fields())) return;
  }
  check(back->get_num_records() == saved.get_num_records(), "reload records");
  for (unsigned row = 0; row < saved.get_num_records(); ++row) {
    for (unsigned f = 0; f < saved.get_num_fields(); ++f) {
      check(back->getField(row, f) == saved.getField(row, f), "reload field",
            std::to_string(row) + "," + std::to_string(f));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzing::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static fuzzing::MemoryFileSystem* disk = new fuzzing::MemoryFileSystem();
  disk->reset();
  fuzzing::FuzzInput in(data, size);
  const uint8_t options = in.byte();
  const bool csv = options & 1;
  const bool strict = options & 2;
  static const int kLimits[] = {INT_MAX, 0, 1, 3};
  const int max_records = kLimits[(options >> 2) & 3];
  const std::string_view bytes = in.rest();

  const std::string path = csv ? "/fuzz/in.csv" : "/fuzz/in.kst";
  disk->put(path, std::string(bytes));
  Zr::Ptr<kesta> db(
      new kesta(LightweightString<wchar_t>(std::wstring(path.begin(), path.end()).c_str()), max_records, strict));
  checkLoaded(*db, csv, max_records);

  const LightweightString<wchar_t> out(L"/fuzz/out.kst");
  db->set_filename(out);
  const int written = db->save_text();
  check(disk->get("/fuzz/out.kst") != nullptr, "save writes the file");
  check(written == static_cast<int>(db->get_num_records()), "save answers the records written");
  fuzzing::checkDatabase(*db);
  if (!csv && db->get_valid()) checkReload(*db, out);
  return 0;
}
