// Views repairing themselves after deletions: a database of N records with two chained views
// (database <- A <- B, both showing every row). Every third row is tagged and deleted, once
// through the outer view (B.deleteTagged(), which deletes run by run down the chain and lets
// both views hear every loss) and once at the database (delete_tagged_records, heard by both
// views). Each reports its growth with N; the repair must stay near n log n, not rows times
// deletions. And the outer view sorting its rows on two keys.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "record/kesta.h"
#include "view/KSTViewRep.h"

namespace {

struct Chain {
  explicit Chain(int rows) {
    std::vector<DBFieldDesc> fields{{"Name", DBFieldTypes::kText}, {"Reel", DBFieldTypes::kText}};
    db = Zr::Ptr<kesta>(new kesta(fields));
    db->add_records(rows);
    a = new KSTViewRep(db.get());
    a->addUse();
    a->displayAllRecords();
    b = new KSTViewRep(db.get());
    b->addUse();
    b->baseView(a);
    b->displayAllRecords();
  }
  ~Chain() {
    b->releaseUse();
    a->releaseUse();
  }
  Chain(const Chain&) = delete;
  Chain& operator=(const Chain&) = delete;

  Zr::Ptr<kesta> db;
  KSTViewRep* a;
  KSTViewRep* b;
};

void BM_OuterViewDeleteTagged(benchmark::State& state) {
  const int rows = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Chain chain(rows);
    for (int i = 0; i < rows; i += 3) chain.b->set_tag(static_cast<unsigned>(i), 1);
    state.ResumeTiming();
    benchmark::DoNotOptimize(chain.b->deleteTagged());
    state.PauseTiming();
    state.counters["db_rows_left"] = chain.db->get_num_records();
    state.counters["B_rows_left"] = chain.b->get_num_records();
    state.ResumeTiming();
  }
  state.SetComplexityN(rows);
}

void BM_DatabaseDeleteTaggedSeenByChain(benchmark::State& state) {
  const int rows = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    Chain chain(rows);
    for (int i = 0; i < rows; i += 3) chain.db->set_tag(static_cast<unsigned>(i), 1);
    state.ResumeTiming();
    benchmark::DoNotOptimize(chain.db->delete_tagged_records());
    state.PauseTiming();
    state.counters["A_rows_left"] = chain.a->get_num_records();
    state.counters["B_rows_left"] = chain.b->get_num_records();
    state.ResumeTiming();
  }
  state.SetComplexityN(rows);
}

// Names of scenes and takes and reels of a few hundred; each sort starts from the order of a
// sort on the names alone, which scatters the reels.
void BM_OuterViewSortTwoKeys(benchmark::State& state) {
  const int rows = static_cast<int>(state.range(0));
  Chain chain(rows);
  std::mt19937 rng(7);
  char text[32];
  for (int r = 0; r < rows; ++r) {
    std::snprintf(text, sizeof text, "Sc %u Tk %u", static_cast<unsigned>(rng() % 5000),
                  static_cast<unsigned>(rng() % 9));
    chain.db->set_field(static_cast<unsigned>(r), 0u, text);
    std::snprintf(text, sizeof text, "A%03u", static_cast<unsigned>(rng() % 400));
    chain.db->set_field(static_cast<unsigned>(r), 1u, text);
  }
  int by_name[] = {0, -1};
  int by_reel_and_name[] = {1, 0, -1};
  for (auto _ : state) {
    state.PauseTiming();
    chain.db->set_sortfields(by_name);
    chain.b->sort(-1, 0);
    chain.db->set_sortfields(by_reel_and_name);
    state.ResumeTiming();
    chain.b->sort(1, 0);
  }
  state.SetComplexityN(rows);
}

BENCHMARK(BM_OuterViewDeleteTagged)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);
BENCHMARK(BM_DatabaseDeleteTaggedSeenByChain)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

BENCHMARK(BM_OuterViewSortTwoKeys)
    ->RangeMultiplier(10)
    ->Range(10000, 1000000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oNLogN);

}  // namespace
