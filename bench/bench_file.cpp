// Loading and saving a whole database file the size of a long shoot's dailies: a million
// records of the 17 standard log columns, about 250 bytes a record. Reports file bytes per
// second, and the memory a loaded database holds per record (resident) and needs at the
// peak of the load (file buffer and records together).
//
// KESTA_BENCH_RECORDS overrides the record count. The log is generated once per process, in a
// child process, so that the parent's heap is untouched when its memory is measured.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "bench/DailiesColumns.h"
#include "record/kesta.h"
#include "support/Config.h"
#include "support/TextFile.h"
#include "support/TextFileReader.h"

namespace {

constexpr unsigned kDefaultRecords = 1000000;
constexpr int kFps = 24;

using bench::kDailiesColumns;

const char* const kCrew[] = {"Ana Ruiz", "Ben Okafor", "Chen Wei", "Dana Kowalski", "Eli Brandt"};
const char* const kDescriptions[] = {"wide: Mara enters the harbour office", "close up: Tom reads the letter",
                                     "tracking: the courier runs for the ferry",
                                     "two shot: the detective waits under the crane",
                                     "over the shoulder: Mara argues by the window"};
const char* const kNotes[] = {
    "", "", "circle take", "NG focus", "soft focus, retake", "use \"B\" camera angle, cut at slate"};

// A small deterministic generator (xorshift64*).
struct Random {
  uint64_t state;
  uint64_t next() {
    state ^= state >> 12;
    state ^= state << 25;
    state ^= state >> 27;
    return state * 2685821657736338717ull;
  }
  unsigned below(unsigned n) { return static_cast<unsigned>(next() % n); }
};

std::string timecode(long frames) {
  char text[16];
  const long seconds = frames / kFps;
  std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld:%02ld", (seconds / 3600) % 24, (seconds / 60) % 60, seconds % 60,
                frames % kFps);
  return text;
}

std::string keycode(long footage, long frames) {
  char text[32];
  const long total = (footage + frames / 16) % 100000000;
  std::snprintf(text, sizeof text, "KJ 23 %04ld %04ld+%02ld", total / 10000, total % 10000, frames % 16);
  return text;
}

void fill_log(kesta& db, unsigned records) {
  Random rng{0x9e3779b97f4a7c15ull};
  db.add_records(static_cast<int>(records));
  long start = 3600L * kFps;
  long sound = 14L * 3600 * kFps;
  long footage = 45678901;
  char text[64];
  for (unsigned row = 0; row < records; ++row) {
    const unsigned scene = 1 + row / 6;
    const unsigned take = 1 + row % 6;
    const long length = 8L * kFps + rng.below(140 * kFps);
    std::snprintf(text, sizeof text, "%08x-%04x-4%03x-%04x-%012llx", static_cast<unsigned>(rng.next()),
                  rng.below(0x10000), rng.below(0x1000), 0x8000 | rng.below(0x4000),
                  static_cast<unsigned long long>(rng.next() & 0xffffffffffffull));
    db.set_field(row, 0, text);
    std::snprintf(text, sizeof text, "Sc %u%s Tk %u", scene, row % 7 == 0 ? "A" : "", take);
    db.set_field(row, 1, text);
    std::snprintf(text, sizeof text, "A%03u", 1 + row / 40 % 999);
    db.set_field(row, 2, text);
    std::snprintf(text, sizeof text, "%u", scene);
    db.set_field(row, 3, text);
    std::snprintf(text, sizeof text, "%u", take);
    db.set_field(row, 4, text);
    db.set_field(row, 5, timecode(start).c_str());
    db.set_field(row, 6, timecode(start + length).c_str());
    db.set_field(row, 7, timecode(length).c_str());
    std::snprintf(text, sizeof text, "S%03u", 1 + row / 80 % 999);
    db.set_field(row, 8, text);
    db.set_field(row, 9, timecode(sound).c_str());
    db.set_field(row, 10, timecode(sound + length).c_str());
    db.set_field(row, 11, keycode(footage, 0).c_str());
    db.set_field(row, 12, keycode(footage, length).c_str());
    db.set_field(row, 13, kCrew[rng.below(5)]);
    db.set_field(row, 14, kDescriptions[rng.below(5)]);
    db.set_field(row, 15, kNotes[rng.below(6)]);
    db.set_tag(row, rng.below(8) == 0 ? 1 : 0);
    start += length + 2 * kFps;
    sound += length + 2 * kFps;
    footage += length / 16 + 1;
  }
}

unsigned record_count() {
  const char* text = std::getenv("KESTA_BENCH_RECORDS");
  const long n = text ? std::strtol(text, nullptr, 10) : 0;
  return n > 0 ? static_cast<unsigned>(n) : kDefaultRecords;
}

LightweightString<wchar_t> wide(const std::string& text) {
  std::wstring w(text.begin(), text.end());
  return LightweightString<wchar_t>(w.c_str(), w.size());
}

// The log's records as comma-separated lines under a line of column names; a field holding a
// comma is quoted.
bool write_csv(const kesta& db, const std::string& path) {
  std::ofstream out(path);
  for (unsigned column = 0; column < db.get_num_fields(); ++column)
    out << (column ? "," : "") << db.get_fieldname(column);
  out << '\n';
  for (unsigned row = 0; row < db.get_num_records(); ++row) {
    for (unsigned column = 0; column < db.get_num_fields(); ++column) {
      const std::string text = db.getField(row, column).c_str();
      const bool quote = text.find(',') != std::string::npos;
      out << (column ? "," : "") << (quote ? "\"" : "") << text << (quote ? "\"" : "");
    }
    out << '\n';
  }
  return static_cast<bool>(out.flush());
}

// The generated log, made once per process and removed at exit, and the same records as a
// comma-separated file.
struct Log {
  std::string folder;
  std::string path;
  std::string csv_path;
  unsigned records = 0;
  uint64_t bytes = 0;
  uint64_t csv_bytes = 0;
  bool ok = false;

  Log() {
    records = record_count();
    std::string pattern = (std::filesystem::temp_directory_path() / "kesta-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) return;
    folder = pattern;
    path = folder + "/dailies.kst";
    csv_path = folder + "/dailies.csv";
    const pid_t child = fork();
    if (child == 0) {
      kesta db(kDailiesColumns);
      db.set_param_val("Production", "Night Harbour");
      db.set_param_val("Editor", "J. Marlow");
      fill_log(db, records);
      db.set_filename(wide(path));
      _exit(db.save_text() == static_cast<int>(records) && write_csv(db, csv_path) ? 0 : 1);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return;
    std::error_code error;
    bytes = std::filesystem::file_size(path, error);
    if (!error) csv_bytes = std::filesystem::file_size(csv_path, error);
    ok = !error;
  }
  ~Log() {
    std::error_code ignored;
    if (!folder.empty()) std::filesystem::remove_all(folder, ignored);
  }
};

const Log& the_log() {
  static const Log log;
  return log;
}

// The generated log, or null with the benchmark marked skipped.
const Log* log_or_skip(benchmark::State& state) {
  const Log& log = the_log();
  if (log.ok) return &log;
  state.SkipWithError("could not generate the log");
  return nullptr;
}

// A field of /proc/self/status in bytes ("VmRSS", "VmHWM"), or 0.
uint64_t status_bytes(const char* key) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::size_t n = std::strlen(key);
  while (std::getline(status, line)) {
    if (line.compare(0, n, key) == 0 && line.size() > n && line[n] == ':') {
      return std::strtoull(line.c_str() + n + 1, nullptr, 10) * 1024;
    }
  }
  return 0;
}

// Resets the peak resident size so that VmHWM measures from here on; false when the kernel
// does not allow it.
bool reset_peak() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
  clear.flush();
  return static_cast<bool>(clear);
}

// Argument 1: the log is read by mapping its file (the setting kst turns on), 0: copied.
void BM_LoadLog(benchmark::State& state) {
  const Log* const found = log_or_skip(state);
  if (!found) return;
  const Log& log = *found;
  config_set_int("map_files", static_cast<int>(state.range(0)));
  // Memory, measured once before the timed loads.
  {
    const uint64_t before = status_bytes("VmRSS");
    const bool peak_known = reset_peak();
    Zr::Ptr<kesta> db(new kesta(wide(log.path), INT_MAX, true));
    if (db->get_num_records() != log.records) {
      state.SkipWithError("the log did not load whole");
      return;
    }
    const double per_record = 1.0 / log.records;
    state.counters["resident_bytes_per_record"] = static_cast<double>(status_bytes("VmRSS") - before) * per_record;
    if (peak_known) {
      state.counters["peak_bytes_per_record"] = static_cast<double>(status_bytes("VmHWM") - before) * per_record;
    }
  }
  for (auto _ : state) {
    Zr::Ptr<kesta> db(new kesta(wide(log.path), INT_MAX, true));
    benchmark::DoNotOptimize(db->get_num_records());
    state.PauseTiming();
    db = nullptr;  // freeing the records is not part of the load
    state.ResumeTiming();
  }
  config_unset_int("map_files");
  state.counters["records"] = log.records;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(log.bytes));
}
BENCHMARK(BM_LoadLog)->ArgName("mapped")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// The load's line scan alone: every line of the mapped log read into one record, which holds
// each in turn. Against BM_LoadLog/mapped:1, what making a million records and their list adds.
void BM_ScanLogLines(benchmark::State& state) {
  const Log* const found = log_or_skip(state);
  if (!found) return;
  const Log& log = *found;
  config_set_int("map_files", 1);
  constexpr int kColumnCount = static_cast<int>(std::size(kDailiesColumns)) - 1;
  unsigned rows = 0;  // lines of the log's width: the records, and the header's widths, types and names
  for (auto _ : state) {
    TextFileReader in(wide(log.path), '\n', false);
    TextFile lines;
    dbrecord record(0);
    rows = 0;
    while (in.next(lines)) {
      for (unsigned i = lines.getNumLines(); i > 0; --i) rows += record.read(lines) == kColumnCount;
    }
    if (!in.finish()) {
      state.SkipWithError("the log could not be read");
      return;
    }
  }
  config_unset_int("map_files");
  if (rows != log.records + 3) state.SkipWithError("the lines did not read as written");
  state.counters["records"] = log.records;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(log.bytes));
}
BENCHMARK(BM_ScanLogLines)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// A comma-separated file of the same records, read by the library's CSV path.
void BM_LoadCsv(benchmark::State& state) {
  const Log* const found = log_or_skip(state);
  if (!found) return;
  const Log& log = *found;
  for (auto _ : state) {
    Zr::Ptr<kesta> db(new kesta(wide(log.csv_path), INT_MAX, true));
    if (db->get_num_records() != log.records) {
      state.SkipWithError("the file did not load whole");
      return;
    }
    state.PauseTiming();
    db = nullptr;  // freeing the records is not part of the load
    state.ResumeTiming();
  }
  state.counters["records"] = log.records;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(log.csv_bytes));
}
BENCHMARK(BM_LoadCsv)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_SaveLog(benchmark::State& state) {
  const Log* const found = log_or_skip(state);
  if (!found) return;
  const Log& log = *found;
  Zr::Ptr<kesta> db(new kesta(wide(log.path), INT_MAX, true));
  // Tags come back from the Tag column, as the tool restores them on every load: the timed
  // saves write back what was read, the common case, rather than retagging an eighth of the log.
  const unsigned tag_column = db->get_fieldnum("Tag");
  for (unsigned row = 0; row < db->get_num_records(); ++row) {
    db->set_tag(row, db->getField(row, tag_column) == LightweightString<char>("1") ? 1 : 0);
  }
  if (state.range(0) == 1) {
    // Sorted on its random cookies: the save then reads records and lines scattered over memory.
    int keys[] = {static_cast<int>(db->get_fieldnum("Cookie")), -1};
    db->set_sortfields(keys);
    db->sort(1, 0);
  }
  db->set_filename(wide(log.folder + "/saved.kst"));
  uint64_t written = 0;
  for (auto _ : state) {
    if (db->save_text() != static_cast<int>(log.records)) {
      state.SkipWithError("the save failed");
      return;
    }
    std::error_code error;
    written = std::filesystem::file_size(log.folder + "/saved.kst", error);
  }
  state.counters["records"] = log.records;
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(written));
}
BENCHMARK(BM_SaveLog)->ArgName("shuffled")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
