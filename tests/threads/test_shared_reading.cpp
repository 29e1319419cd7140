// Records and strings shared read-only between threads while every thread copies and releases
// counted handles on them: Zr::Ptr to the database and its records, LightweightString handles
// on field texts, record copies that share their field strings. Nothing may be lost or torn:
// each thread must read exactly what a single thread reads, and every count must come back to
// where it started. The reliability preset runs this under ThreadSanitizer, which must report
// nothing.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "common/TestUtil.h"
#include "record/kesta.h"
#include "support/Cookie.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 40;

// FNV-1a of a text, continuing from `h`.
uint64_t digest(uint64_t h, std::string_view text) {
  for (unsigned char c : text) h = (h ^ c) * 1099511628211ull;
  return (h ^ 0xFF) * 1099511628211ull;
}

struct Shared {
  Zr::Ptr<kesta> db;
  std::vector<Zr::Ptr<dbrecord>> records;
  std::vector<LightweightString<char>> names;  // one handle on each record's Name text
  std::vector<Cookie> ids;
  unsigned name_field = 0;
  unsigned cookie_field = 0;
};

// One thread's work: walks every row through several kinds of handle, copying and dropping
// them as it goes, and answers the sum of the rows' digests (threads walk in different
// orders); 0 when two handles on the same thing disagreed.
uint64_t readAll(const Shared& shared, int thread, std::atomic<int>& lookups_found) {
  uint64_t sum = 0;
  const unsigned rows = static_cast<unsigned>(shared.records.size());
  for (int round = 0; round < kRounds; ++round) {
    Zr::Ptr<kesta> db = shared.db;  // a count on the database, per round
    std::vector<LightweightString<char>> kept;
    kept.reserve(rows);
    for (unsigned i = 0; i < rows; ++i) {
      // Threads start at different rows so that they meet on the same counts in every order.
      const unsigned row = (i + static_cast<unsigned>(thread) * 7u) % rows;
      Zr::Ptr<dbrecord> record = db->get_record(row);
      Zr::Ptr<dbrecord> again = shared.records[row];
      if (record.get() != again.get()) return 0;
      const dbrecord copy(*record);  // shares every field string
      uint64_t h = 1469598103934665603ull;
      for (unsigned short f = 0; f < copy.get_num_fields(); ++f) {
        LightweightString<char> text = copy.getField(f);
        LightweightString<char> through_db = db->getField(row, f);
        if (!(text == through_db)) return 0;
        if (round == 0) h = digest(h, text.view());
        if (f == shared.name_field) kept.push_back(text);
      }
      if (round == 0) sum += h;
      LightweightString<char> name = shared.names[row];
      if (!(name == kept.back())) return 0;
    }
    // Lookups through an identifier index built before the threads started only read it.
    const Cookie& id = shared.ids[static_cast<std::size_t>(round) % shared.ids.size()];
    if (db->get_record(id)) lookups_found.fetch_add(1, std::memory_order_relaxed);
  }
  return sum;
}

TEST(SharedReading, EightThreadsCopyAndReleaseHandlesOnSharedRecords) {
  Shared shared;
  shared.db = Zr::Ptr<kesta>(new kesta(testutil::wide(testutil::example("dailies.kst")), 0x7fffffff, false));
  ASSERT_GT(shared.db->get_num_records(), 100u);
  shared.name_field = shared.db->get_fieldnum(LightweightString<char>("Name"));
  shared.cookie_field = shared.db->get_fieldnum(LightweightString<char>("Cookie"));
  ASSERT_NE(shared.name_field, 0xFFFFFFFFu);
  ASSERT_NE(shared.cookie_field, 0xFFFFFFFFu);
  for (unsigned row = 0; row < shared.db->get_num_records(); ++row) {
    shared.records.push_back(shared.db->get_record(row));
    shared.names.push_back(shared.db->getField(row, shared.name_field));
    shared.ids.emplace_back(shared.db->getField(row, shared.cookie_field), false);
  }
  // Builds the identifier index now: the lookups in the threads then only read it.
  ASSERT_EQ(shared.db->getRowIndexByID(shared.ids[3]), 3u);

  std::vector<int32_t> record_counts, name_counts;
  for (unsigned row = 0; row < shared.records.size(); ++row) {
    record_counts.push_back(shared.records[row].useCount());
    name_counts.push_back(shared.names[row].shareCount());
  }
  const int32_t db_count = shared.db.useCount();
  std::atomic<int> unused{0};
  const uint64_t expected = readAll(shared, 0, unused);
  ASSERT_NE(expected, 0u);

  std::vector<uint64_t> results(kThreads, 0);
  std::atomic<int> found{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] { results[static_cast<std::size_t>(t)] = readAll(shared, t, found); });
  }
  for (std::thread& thread : threads) thread.join();

  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(results[static_cast<std::size_t>(t)], expected) << "thread " << t;
  EXPECT_EQ(found.load(), kThreads * kRounds);
  EXPECT_EQ(shared.db.useCount(), db_count);
  for (unsigned row = 0; row < shared.records.size(); ++row) {
    EXPECT_EQ(shared.records[row].useCount(), record_counts[row]) << "record " << row;
    EXPECT_EQ(shared.names[row].shareCount(), name_counts[row]) << "name " << row;
  }
}

// Loaded records hold their lines until a field string is asked for; threads that ask at once
// must each get the fields, made once, while other threads read views of the same line.
TEST(SharedReading, RecordsHeldAsLinesAreTakenApartOnceWhoeverAsks) {
  const LightweightString<wchar_t> path = testutil::wide(testutil::example("dailies.kst"));
  Zr::Ptr<kesta> reference(new kesta(path, 0x7fffffff, false));
  std::vector<std::vector<std::string>> expected;
  for (unsigned row = 0; row < reference->get_num_records(); ++row) {
    Zr::Ptr<dbrecord> record = reference->get_record(row);
    std::vector<std::string> fields;
    for (unsigned short f = 0; f < record->get_num_fields(); ++f) fields.emplace_back(record->get_field(f));
    expected.push_back(fields);
  }
  for (int round = 0; round < 4; ++round) {
    Zr::Ptr<kesta> db(new kesta(path, 0x7fffffff, false));
    ASSERT_EQ(db->get_num_records(), expected.size());
    unsigned held = 0;
    for (unsigned row = 0; row < db->get_num_records(); ++row) held += db->get_record(row)->heldAsLine();
    ASSERT_GT(held, expected.size() / 2) << "the example's records should mostly be plain lines";
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (unsigned i = 0; i < expected.size(); ++i) {
          const unsigned row = (i + static_cast<unsigned>(t) * 5u) % static_cast<unsigned>(expected.size());
          Zr::Ptr<dbrecord> record = db->get_record(row);
          for (unsigned short f = 0; f < record->get_num_fields(); ++f) {
            // Odd threads look at views first, even ones make the strings.
            const std::string got = t % 2 ? std::string(record->fieldView(f)) : std::string(record->get_field(f));
            if (got != expected[row][f] || record->getField(f).view() != expected[row][f]) ++mismatches;
          }
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
  }
}

}  // namespace
