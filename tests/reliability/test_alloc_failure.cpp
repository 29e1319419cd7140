// Allocation failure: allocation k = 1, 2, ... of an operation fails, alone or with every
// later one, until the operation completes untouched. Nothing crashes, every block comes
// back, the invariants hold, and a load, insertion, sort or tagging that fails leaves the
// database as it was.

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <vector>

#include "ReliabilityUtil.h"
#include "common/TestUtil.h"
#include "record/KestaDebugPrivate.h"
#include "support/Cookie.h"
#include "view/KSTView.h"
#include "view/KSTViewRep.h"

namespace {

constexpr int kRows = 200;
int kKeys[] = {3, 0, -1};

// Every feature of the record line: doubled quotes, escaped line feeds, double backslashes,
// blanks around fields, empty and unquoted fields, carriage returns, duplicate and colon-less
// parameters, and the tag column.
std::string line_format_file(bool header) {
  std::string text = "\"KESTA:Rev 1\"\n\"Production:Night Harbour\"\n\"no colon here\"\n\"Production:second unit\"\r\n";
  if (header)
    text += "\"KESTA\"\n\"36\",\"20\",\"12\",\"40\",\"2\"\n\"text\",\"text\",\"timecode\",\"text\",\"text\"\n";
  text += "\"Cookie\",\"Name\",\"Start time\",\"Notes\",\"Tag\"\n";
  const std::string notes[] = {"\"actor said \"\"harbour\"\" twice\"",
                               "\"first line\\nsecond line\"",
                               "\"C:\\\\takes\\\\\"",
                               "  \"  padded  \"  ",
                               "\"\"",
                               "plain"};
  for (int r = 0; r < kRows; ++r) {
    const std::string n = std::to_string(r);
    text += "\"" + std::to_string(1000 + (r * 37) % kRows) + "-cookie\",\"Sc " + std::to_string(r % 9) + " Tk " + n +
            "\",\"01:0" + std::to_string(r % 10) + ":00:" + std::to_string(10 + r % 50) + "\"," + notes[r % 6] + ",\"" +
            (r % 3 == 0 ? "1" : "0") + "\"" + (r % 7 == 0 ? "\r\n" : "\n");
  }
  return text;
}

struct Files {
  testutil::TempDir dir;
  Files() {
    testutil::writeFile(dir.file("day.kst"), line_format_file(true));
    testutil::writeFile(dir.file("plain.kst"), line_format_file(false));
    std::string csv = "Name,Scene,Notes\n";
    for (int r = 0; r < kRows; ++r)
      csv += "Tk " + std::to_string(r) + "," + std::to_string(r % 9) + ",\"print, circle\"\n";
    testutil::writeFile(dir.file("day.csv"), csv);
  }
};

Files& files() {
  static Files f;
  return f;
}

// A database and the views on it; the views go first, as they must.
struct World {
  Zr::Ptr<kesta> db;
  std::vector<KSTView> views;
};

World loaded() { return World{Zr::Ptr<kesta>(new kesta(files().dir.wfile("day.kst"), 0x7fffffff, true)), {}}; }

World tagged() {
  World w = loaded();
  for (unsigned r = 0; r < kRows; r += 3) w.db->set_tag(r, 1);
  return w;
}

// Other columns and rows, which a failed load must leave as they are.
World small_database() {
  World w{
      Zr::Ptr<kesta>(new kesta(std::vector<DBFieldDesc>{{"Reel", DBFieldTypes::kText}, {"Tag", DBFieldTypes::kText}})),
      {}};
  w.db->add_param("Editor", "J. Marlow");
  w.db->add_records(3);
  for (unsigned r = 0; r < 3; ++r) w.db->set_field(r, 0, ("A00" + std::to_string(r)).c_str());
  w.db->set_field(1, 1u, "1");
  return w;
}

// Three chained views: every row, its every third row, and every other one of those.
World chained() {
  World w = loaded();
  KSTView all(new KSTViewRep(w.db.get()));
  all->displayAllRecords();
  all->setupViewTagsFromKestaTagField();
  KSTView middle(all->newTagSubview());
  for (unsigned r = 0; r < middle->get_num_records(); r += 2) middle->set_tag(r, 1);
  KSTView last(middle->newTagSubview());
  for (unsigned r = 0; r < last->get_num_records(); r += 4) last->set_tag(r, 1);
  w.views = {all, middle, last};
  return w;
}

struct Snapshot {
  filemodel::Content content;
  reliability::Marks marks;
  int show_tags_only = 0;
  unsigned rows = 0;
  std::vector<unsigned> name_lookups;
  bool operator==(const Snapshot&) const = default;
};

Snapshot snapshot(kesta& db) {
  Snapshot s{reliability::contentOf(db), reliability::marksOf(db), db.get_show_tags_only(), db.get_num_records(), {}};
  for (const char* name : {"Cookie", "Name", "Notes", "Tag", "Reel", "Scene"}) {
    s.name_lookups.push_back(db.get_fieldnum(LightweightString<char>(name)));
  }
  return s;
}

struct Operation {
  const char* name;
  std::function<World()> make;
  std::function<void(World&)> run;
  bool keeps_database;  // a failure leaves the database as it was
};

// Views on a private copy of the database are checked with that copy.
bool check_world(const World& w, std::string* why) {
  std::vector<const KSTViewRep*> views;
  for (const KSTView& v : w.views) {
    if (v->database() == w.db.get()) {
      views.push_back(v.get());
    } else if (!KestaDebug::checkWithViews(*v->database(), {v.get()}, why)) {
      return false;
    }
  }
  return KestaDebug::checkWithViews(*w.db, views, why);
}

void run_all(const std::vector<Operation>& ops) {
  for (const Operation& op : ops) {
    {
      // Lazily built process-wide state is made once here, outside the counted runs.
      testutil::TestAllocator warm_up;
      World w = op.make();
      op.run(w);
    }
    for (bool and_later : {false, true}) {
      const std::string label = std::string(op.name) + (and_later ? " (from k-th)" : " (k-th only)");
      long k = 1;
      for (bool failed = true; failed && !::testing::Test::HasFailure(); ++k) {
        ASSERT_LT(k, 200000) << label << " never completed";
        testutil::TestAllocator allocator;
        failed = false;
        {
          World w = op.make();
          const Snapshot before = snapshot(*w.db);
          allocator.failAllocation(k, and_later);
          try {
            op.run(w);
          } catch (const std::bad_alloc&) {
            failed = true;
          }
          allocator.failAllocation(0);
          failed = failed || allocator.failures() > 0;
          std::string why;
          EXPECT_TRUE(check_world(w, &why)) << label << " k=" << k << ": " << why;
          if (failed && op.keeps_database) {
            const Snapshot after = snapshot(*w.db);
            EXPECT_TRUE(after == before) << label << " k=" << k << " changed the database: "
                                         << filemodel::difference(before.content, after.content);
          }
        }
        EXPECT_EQ(allocator.live(), 0) << label << " k=" << k << " leaked";
      }
      // An operation that allocates nothing would make the sweep vacuous.
      EXPECT_GT(k, 2) << label;
    }
  }
}

void load_into(World& w, const std::string& name, bool strict) {
  w.db->loadFromFile(files().dir.wfile(name), 0x7fffffff, strict);
}

}  // namespace

TEST(AllocFailure, LoadingAndInsertingAreAllOrNothing) {
  run_all({
      {"load with header", small_database, [](World& w) { load_into(w, "day.kst", true); }, true},
      {"load without header", small_database, [](World& w) { load_into(w, "plain.kst", false); }, true},
      {"load csv", small_database, [](World& w) { load_into(w, "day.csv", false); }, true},
      {"reload", loaded, [](World& w) { load_into(w, "day.kst", true); }, true},
      {"insert_records", loaded, [](World& w) { w.db->insert_records(57, 4); }, true},
      {"add_records", loaded, [](World& w) { w.db->add_records(40); }, true},
      {"addRecord", loaded, [](World& w) { w.db->addRecord(Cookie("4711-cookie", false)); }, true},
  });
}

TEST(AllocFailure, SortingTaggingAndSaving) {
  run_all({
      {"sort ascending", loaded, [](World& w) { w.db->set_sortfield(1), w.db->sort(1, 0); }, true},
      {"sort descending, two keys", loaded, [](World& w) { w.db->set_sortfields(kKeys), w.db->sort(0, 1); }, true},
      {"index tags", tagged, [](World& w) { w.db->index_tags(); }, true},
      {"index tags again", tagged, [](World& w) { w.db->index_tags(), w.db->invert_all_tags(), w.db->index_tags(); },
       false},
      {"save a view", chained, [](World& w) { w.views[1]->saveAsText(files().dir.wfile("view.kst"), false); }, false},
  });
}

TEST(AllocFailure, BuildingChainingAndDeletingThroughViews) {
  run_all({
      {"display all", loaded, [](World& w) { w.views.emplace_back(new KSTViewRep(w.db.get()))->displayAllRecords(); },
       false},
      {"display ranges and matches", loaded,
       [](World& w) {
         KSTViewRep& v = *w.views.emplace_back(new KSTViewRep(w.db.get(), "Name,Notes"));
         v.displayRecordsAt(10, 50, 0), v.displayMatchAt("Notes", "plain", 5), v.displayTaggedRecordsAt(0);
       },
       false},
      {"chain", chained,
       [](World& w) {
         w.views.emplace_back(w.views[2]->newTagSubview()), w.views.emplace_back(w.views[1]->copyWithNewBaseView());
       },
       false},
      {"sort and tag a view", chained,
       [](World& w) { w.db->set_sortfield(2), w.views[0]->sortIndex(), w.views[0]->tagDuplicates(4); }, false},
      {"delete from the last view", chained, [](World& w) { w.views[2]->deleteRecords(1, 6); }, false},
      {"delete tagged from the first view", chained, [](World& w) { w.views[0]->deleteTagged(); }, false},
      {"remove from the middle view", chained, [](World& w) { w.views[1]->removeRecordsFromBaseView(2, 9); }, false},
      {"delete tagged records", chained,
       [](World& w) { w.db->set_tag(5, 1), w.db->set_tag(100, 1), w.db->delete_tagged_records(); }, false},
  });
}
