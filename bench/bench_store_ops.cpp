// Whole-database operations on a generated log of 17 columns at 10,000, 100,000 and 1,000,000
// records: sorting on two keys both ways, tagging by a substring query and by a time-code range,
// tagging distinct reels, deleting every third record (one deletion call and one
// "recordsDeleted" message per tagged run), and merging by column name. Each runs on three
// forms of the same records: strings shared between records as generated, lines as a loaded
// log's records hold them, and each record's own strings as a loaded record holds once taken
// apart. Each benchmark reports
// its growth with the record count; benchmarks after a sort see the records out of memory order.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "bench/DailiesColumns.h"
#include "record/kesta.h"
#include "support/Notifier.h"

namespace {

// A database that can put its records into a random order again between runs.
class BenchKesta : public kesta {
 public:
  using kesta::kesta;
  void shuffle(std::mt19937& rng) {
    Zr::Ptr<dbrecord>* first = records().contiguous();
    std::shuffle(first, first + records().size(), rng);
  }
};

// clang-format off
enum Column : unsigned {
  kCookie, kName, kReel, kScene, kShot, kStart, kEnd, kDuration, kSndReel, kSndStart, kSndEnd,
  kStartKey, kEndKey, kWho, kDescription, kNotes, kTag, kColumnCount
};
// clang-format on

const std::vector<DBFieldDesc>& columns() {
  static const std::vector<DBFieldDesc> list(std::begin(bench::kDailiesColumns), std::end(bench::kDailiesColumns) - 1);
  return list;
}

LightweightString<char> format(const char* pattern, unsigned a, unsigned b = 0, unsigned c = 0, unsigned d = 0) {
  char text[96];
  int n = std::snprintf(text, sizeof text, pattern, a, b, c, d);
  return LightweightString<char>(text, static_cast<std::size_t>(n));
}

LightweightString<char> timecode(unsigned frames) {
  return format("%02u:%02u:%02u:%02u", frames / 90000 % 24, frames / 1500 % 60, frames / 25 % 60, frames % 25);
}

// Columns with few distinct values share their strings, as a loaded log's would not; sorting
// and matching read the text either way.
std::vector<LightweightString<char>> pool(const char* pattern, unsigned count) {
  std::vector<LightweightString<char>> out;
  for (unsigned i = 0; i < count; ++i) out.push_back(format(pattern, i, i % 7, i % 13));
  return out;
}

Zr::Ptr<BenchKesta> generate(unsigned records) {
  Zr::Ptr<BenchKesta> db(new BenchKesta(columns()));
  std::mt19937 rng(records);
  auto reels = pool("A%03u", 400);
  auto sound_reels = pool("S%03u", 120);
  auto scenes = pool("%u.%u", 300);
  auto shots = pool("%u", 40);
  auto who = pool("Camera %u", 8);
  auto descriptions = pool("Wide shot %u, slow push in on take %u of %u", 60);
  auto notes = pool("Good take %u; boom in frame at the end of %u (%u)", 90);
  LightweightString<char> zero("0");
  db->add_records(static_cast<int>(records));
  for (unsigned r = 0; r < records; ++r) {
    unsigned start = rng() % (24u * 90000u);
    unsigned length = 50 + rng() % 3000;
    unsigned key = rng() % 10000;
    db->setField(r, kCookie, format("%08x-9b7e-4d21-8c55-%012x", rng(), r));
    db->setField(r, kName, format("A%03u_C%03u_%06u", r % 400, r % 997, r));
    db->setField(r, kReel, reels[rng() % reels.size()]);
    db->setField(r, kScene, scenes[rng() % scenes.size()]);
    db->setField(r, kShot, shots[rng() % shots.size()]);
    db->setField(r, kStart, timecode(start));
    db->setField(r, kEnd, timecode(start + length));
    db->setField(r, kDuration, timecode(length));
    db->setField(r, kSndReel, sound_reels[rng() % sound_reels.size()]);
    db->setField(r, kSndStart, timecode(start));
    db->setField(r, kSndEnd, timecode(start + length));
    db->setField(r, kStartKey, format("KJ 12 3456 %04u+%02u", key, length % 16));
    db->setField(r, kEndKey, format("KJ 12 3456 %04u+%02u", key + length / 16, length % 16));
    db->setField(r, kWho, who[rng() % who.size()]);
    db->setField(r, kDescription, descriptions[rng() % descriptions.size()]);
    if (rng() % 4 != 0) db->setField(r, kNotes, notes[rng() % notes.size()]);
    db->setField(r, kTag, zero);
  }
  return db;
}

// How the records hold their fields: as generated (strings shared between records), as loaded
// (each record keeps its line), or taken apart after loading (each record its own strings).
enum Form : int64_t { kShared, kLines, kOwnStrings };

// One generated log per size and form, kept for the whole run; benchmarks that change the order
// shuffle it again outside the timed part.
BenchKesta& logOf(const benchmark::State& state) {
  const auto records = static_cast<unsigned>(state.range(0));
  const auto form = static_cast<Form>(state.range(1));
  static std::map<std::pair<unsigned, Form>, Zr::Ptr<BenchKesta>> cache;
  Zr::Ptr<BenchKesta>& slot = cache[{records, form}];
  if (slot) return *slot;
  slot = generate(records);
  if (form != kShared) {
    TextFile text;
    for (unsigned r = 0; r < records; ++r) slot->get_record(r)->write(text);
    for (unsigned r = 0; r < records; ++r) {
      slot->get_record(r)->read(text);
      if (form == kOwnStrings) slot->get_record(r)->takeApart();
    }
  }
  return *slot;
}

void setQueryText(kesta& db, unsigned column, const char* text) {
  Zr::Ptr<dbrecord> query = db.make_dummy_record();
  query->set_field(static_cast<int>(column), text);
  db.set_query(query.get());
}

// With `presorted` (1 or -1), the log is first sorted that way on the same keys, not shuffled.
void sortBench(benchmark::State& state, int direction, std::vector<int> keys = {kReel, kStart, -1}, int presorted = 0) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  BenchKesta& db = logOf(state);
  std::mt19937 rng(7);
  for (auto _ : state) {
    state.PauseTiming();
    db.shuffle(rng);
    db.set_sortfields(keys.data());
    if (presorted != 0) db.sort(presorted, 0);
    state.ResumeTiming();
    db.sort(direction, 0);
  }
  state.SetComplexityN(n);
}

void BM_SortTwoKeysAscending(benchmark::State& state) { sortBench(state, 1); }
void BM_SortTwoKeysDescending(benchmark::State& state) { sortBench(state, -1); }
// Logs are often in order already, or in the reverse of the order asked for.
void BM_SortTwoKeysInOrder(benchmark::State& state) { sortBench(state, 1, {kReel, kStart, -1}, 1); }
void BM_SortTwoKeysReversed(benchmark::State& state) { sortBench(state, 1, {kReel, kStart, -1}, -1); }
// One key whose values run past what the sort's prefixes hold, and repeat, as descriptions do.
void BM_SortLongValues(benchmark::State& state) { sortBench(state, 1, {kDescription, -1}); }

void tagBench(benchmark::State& state, unsigned column, const char* query) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  BenchKesta& db = logOf(state);
  setQueryText(db, column, query);
  int matched = 0;
  for (auto _ : state) {
    matched = db.tag_matching_records(0);
    benchmark::DoNotOptimize(matched);
  }
  if (matched <= 0 || static_cast<unsigned>(matched) >= n) state.SkipWithError("the query should match some records");
  state.counters["matched"] = matched;
  state.SetComplexityN(n);
}

void BM_TagMatchingSubstring(benchmark::State& state) { tagBench(state, kDescription, "push in on take 4"); }
void BM_TagMatchingTimecodeRange(benchmark::State& state) { tagBench(state, kEnd, "03:2"); }

void BM_TagAllDifferentReel(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  BenchKesta& db = logOf(state);
  std::mt19937 rng(11);
  int tagged = 0;
  for (auto _ : state) {
    state.PauseTiming();
    db.shuffle(rng);
    state.ResumeTiming();
    tagged = db.tag_all_different(kReel);
  }
  if (tagged != 400) state.SkipWithError("every reel should be tagged once");
  db.set_all_tags(0);
  state.SetComplexityN(n);
}

// A listener like a view's: it reads every row number of every message.
class DeletionCounter {
 public:
  int onDeleted(const NotifyMsg& msg) {
    for (NotifyMsgTokenIterator it(msg); it; ++it) ++rows;
    ++messages;
    return 0;
  }
  std::size_t rows = 0;
  std::size_t messages = 0;
};

void BM_DeleteEveryThirdRecord(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  const BenchKesta& source = logOf(state);
  const int deleted_type = NotifyMsgTypeDictionary::instance().intern("recordsDeleted");
  unsigned deleted = 0;
  DeletionCounter counter;
  for (auto _ : state) {
    state.PauseTiming();
    Zr::Ptr<BenchKesta> db(new BenchKesta(source, 1));
    for (unsigned r = 0; r < n; r += 3) db->set_tag(r, 1);
    Zr::Ptr<Zr::Guard> guard = db->registerNotification(&counter, &DeletionCounter::onDeleted, deleted_type);
    state.ResumeTiming();
    deleted = db->delete_tagged_records();
    state.PauseTiming();
    guard = nullptr;
    db = nullptr;
    state.ResumeTiming();
  }
  if (deleted != (n + 2) / 3 || counter.rows != counter.messages) state.SkipWithError("unexpected deletion");
  state.counters["runs"] = static_cast<double>(deleted);
  state.SetComplexityN(n);
}

// Merging by column name into a database of fewer columns in another order, its start time a
// time code of the other form, and a column the log lacks.
void BM_MergeByName(benchmark::State& state) {
  const unsigned n = static_cast<unsigned>(state.range(0));
  // Of the plain class, as a loaded log is: a class of its own is merged through its calls.
  Zr::Ptr<kesta> source(new kesta(logOf(state), 1));
  const std::vector<DBFieldDesc> target = {{"Reel", DBFieldTypes::kText},
                                           {"Name", DBFieldTypes::kText},
                                           {"Start time", DBFieldTypes::kTimecodeS},
                                           {"Notes", DBFieldTypes::kText},
                                           {"Camera", DBFieldTypes::kText}};
  unsigned merged = 0;
  for (auto _ : state) {
    state.PauseTiming();
    Zr::Ptr<kesta> db(new kesta(target));
    state.ResumeTiming();
    db->merge_all_matching(source.get());
    state.PauseTiming();
    merged = db->get_num_records();
    db = nullptr;
    state.ResumeTiming();
  }
  if (merged != n) state.SkipWithError("the merge did not take every record");
  state.SetComplexityN(n);
}

// Each operation on each form of record (args: records, form), each form with its own growth fit.
#define KESTA_STORE_FORM(name, form, label) \
  BENCHMARK(name)                           \
      ->Name(#name "/" label)               \
      ->Args({10000, form})                 \
      ->Args({100000, form})                \
      ->Args({1000000, form})               \
      ->Unit(benchmark::kMillisecond)       \
      ->Complexity()
#define KESTA_STORE_BENCH(name)              \
  KESTA_STORE_FORM(name, kShared, "shared"); \
  KESTA_STORE_FORM(name, kLines, "lines");   \
  KESTA_STORE_FORM(name, kOwnStrings, "own-strings")

KESTA_STORE_BENCH(BM_SortTwoKeysAscending);
KESTA_STORE_BENCH(BM_SortTwoKeysDescending);
KESTA_STORE_BENCH(BM_TagMatchingSubstring);
KESTA_STORE_BENCH(BM_TagMatchingTimecodeRange);
KESTA_STORE_BENCH(BM_TagAllDifferentReel);
KESTA_STORE_BENCH(BM_DeleteEveryThirdRecord);
KESTA_STORE_BENCH(BM_SortLongValues);
KESTA_STORE_BENCH(BM_SortTwoKeysInOrder);
KESTA_STORE_BENCH(BM_SortTwoKeysReversed);
KESTA_STORE_BENCH(BM_MergeByName);

}  // namespace
