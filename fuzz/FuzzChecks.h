#ifndef KESTA_FUZZ_FUZZCHECKS_H
#define KESTA_FUZZ_FUZZCHECKS_H
// Checks shared by the fuzz targets. A failed check aborts, which the fuzzer reports as a
// crash with the input that caused it.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "record/KestaDebugPrivate.h"
#include "record/kesta.h"
#include "support/Log.h"
#include "view/KSTViewRep.h"

namespace fuzzing {

// The library reports lost lines on standard error; fuzzed files produce such reports by the
// thousand, which would only slow the run down.
inline void silenceLog() {
  class Silent final : public LogSink {
   public:
    void write(const char*, bool) override {}
  };
  static Silent sink;
  setLogSink(&sink);
}

[[noreturn]] inline void fail(const char* what, const std::string& detail = std::string()) {
  std::fprintf(stderr, "check failed: %s %s\n", what, detail.c_str());
  std::abort();
}

inline void check(bool ok, const char* what, const std::string& detail = std::string()) {
  if (!ok) fail(what, detail);
}

// What the database promises through its public operations: every visible row either holds
// a record of this database or is an entry without a record, tags are bytes, and the counts
// agree with a walk of the rows (a row without a record answers the tag -1, which the tag
// count takes as set). Widths are not checked: a repeated header in a one-column file loads
// whatever line follows it as a record, as files have always been read.
inline void checkRows(kesta& db) {
  const unsigned fields = db.get_num_fields();
  const unsigned rows = db.get_num_records();
  int tagged = 0;
  for (unsigned row = 0; row < rows; ++row) {
    Zr::Ptr<dbrecord> record = db.get_record(row);
    const int tag = db.get_tag(row);
    if (!record) {
      check(tag == -1, "a missing record has tag -1");
      ++tagged;
      continue;
    }
    check(record->get_container() == &db, "record container", std::to_string(row));
    check(tag >= 0 && tag <= 255 && tag == record->get_tag(), "record tag", std::to_string(row));
    tagged += tag != 0;
  }
  check(db.get_num_tags() == tagged, "tag count");
  check(db.get_record(rows).get() == nullptr, "no record past the end");
  check(db.get_fieldname(fields)[0] == '\0', "no column past the end");
  for (unsigned f = 0; f < fields; ++f) {
    const unsigned found = db.get_fieldnum(LightweightString<char>(db.get_fieldname(f)));
    check(db.get_fieldname(f)[0] == '\0' || found <= f, "column lookup", std::to_string(f));
  }
}

// The rows as above, and the library's own invariant check.
inline void checkDatabase(kesta& db) {
  checkRows(db);
  std::string why;
  check(KestaDebug::check(db, &why), "database invariants", why);
}

// Text that the file writer passes through raw (names and parameters are not escaped) and the
// reader gives back unchanged: none of the bytes the writer or reader treat specially, and no
// white space at either end (the reader trims field ends).
inline bool carried(const LightweightString<char>& text, std::size_t max) {
  if (text.size() > max) return false;
  auto space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  if (!text.empty() && (space(text[0]) || space(text[text.size() - 1]))) return false;
  for (char c : text.view()) {
    if (c == '"' || c == '\\' || c == '\r' || c == '\n' || c == '\0') return false;
  }
  return true;
}

// The view's own invariants, and those of the database and the chain it stands on.
inline void checkView(const KSTViewRep& view) {
  std::string why;
  if (view.database()) {
    check(KestaDebug::checkWithViews(*view.database(), {&view}, &why), "view invariants", why);
  } else {
    check(view.checkInvariants(&why), "view invariants", why);
  }
}

}  // namespace fuzzing

#endif
