#ifndef KESTA_TOOLS_KST_LOGLOADER_H
#define KESTA_TOOLS_KST_LOGLOADER_H
// Loading a log for the tool: the library's own load, then a check that it read the whole file.
// The library answers a bad file with an invalid or shortened database and a line in its log;
// the loader turns that into a message that says what is wrong and where, read with the
// library's own line reader, and throws Failure. A command never writes after such a load.
//
//   Zr::Ptr<kesta> db = kst::loadLog("day1.kst");   // throws kst::Failure
//
// Tags live in a log's "Tag" column: saving writes each record's tag there, so the loader sets
// the tags from that column (a non-zero number is tagged) and a later save keeps them.

#include <kesta/kesta.h>

#include <string>
#include <string_view>

namespace kst {

// The library's file name for a UTF-8 path. Throws Failure for a path that is not UTF-8.
LightweightString<wchar_t> widePath(const std::string& path);

// Throws Failure ("cannot read ...: <the system's reason>") unless `path` is a file that can
// be opened for reading.
void requireReadable(const std::string& path);

// Loads the log at `path` (a name ending in ".csv" is read by the library's comma-separated
// form). Throws Failure when the file is missing or unreadable, is not a log, has header lines
// of different lengths, or has record lines the library did not read (a wrong field count, or
// lines after a blank line). A command that sets every record's tag before it reads any
// passes TagColumn::unread: the column's tags would only be overwritten.
// With `keep`, the load keeps only the records it accepts (kesta::set_load_filter); the checks
// still cover every record line.
enum class TagColumn { read, unread };
Zr::Ptr<kesta> loadLog(const std::string& path, TagColumn tags = TagColumn::read, kesta::LoadFilter keep = {});

// Keeps `db` alive until the process ends: taking a million records apart one by one only to
// hand the memory back at exit would cost a tenth of a big job's time. loadLog keeps the logs
// it loads.
void keepUntilExit(const Zr::Ptr<kesta>& db);

// Whether strtol(text, nullptr, 10) is non-zero: blanks, a sign, then a run of digits not all
// zero. Reads a view, so that a record that keeps its line stays whole.
bool nonzeroNumber(std::string_view text);

// Sets every record's tag from the "Tag" column: tagged where the text is a non-zero number.
// Nothing changes when the log has no such column.
void tagsFromTagColumn(kesta& db);

// Whether a "Tag" text is a tag number as a save writes it (digits only), so that a save
// replaces it with a number without losing anything.
bool isTagNumber(std::string_view text);

// True when the last tagsFromTagColumn on `db` found only tag numbers in the column. The tool
// changes no "Tag" text after that call, so a save then replaces none and need not look.
bool tagTextsAreNumbers(const kesta& db);

// Calls fn(row, record, text) with field `field` of every row that has a record, in row order.
// Records are reached a few rows ahead and their field bytes asked for then, so that the
// misses on a big log's lines overlap.
template <class Fn>
void forEachFieldText(kesta& db, unsigned short field, Fn fn) {
  const unsigned rows = db.get_num_records();
  constexpr unsigned kAhead = 8;
  Zr::Ptr<dbrecord> ahead[kAhead];
  auto reach = [&](unsigned r) {
    Zr::Ptr<dbrecord> record = db.get_record(r);
    if (record) __builtin_prefetch(record->fieldView(field).data());
    return record;
  };
  for (unsigned r = 0; r < rows && r < kAhead; ++r) ahead[r] = reach(r);
  for (unsigned r = 0; r < rows; ++r) {
    const Zr::Ptr<dbrecord> record = std::move(ahead[r % kAhead]);
    if (r + kAhead < rows) ahead[r % kAhead] = reach(r + kAhead);
    if (record) fn(r, *record, record->fieldView(field));
  }
}

}  // namespace kst

#endif
