// Views written out as database files: the exact text, files loaded back as databases, the
// view's tags against the database's, the tagged-only form with its row-count answer, and the
// cases that write nothing.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "view/KSTView.h"
#include "view/ViewProbe.h"

namespace {

using Texts = std::vector<std::string>;

constexpr unsigned kName = 0;
constexpr unsigned kTag = 2;

// Name, Scene and Tag, all text; row i is named "Shot i" in scene "s<i>".
Zr::Ptr<kesta> makeDatabase(int rows, bool with_tag = true) {
  std::vector<DBFieldDesc> fields{{"Name", DBFieldTypes::kText}, {"Scene", DBFieldTypes::kText}};
  if (with_tag) fields.push_back({"Tag", DBFieldTypes::kText});
  storetest::Rows table;
  for (int r = 0; r < rows; ++r) table.push_back({"Shot " + std::to_string(r), "s" + std::to_string(r)});
  Zr::Ptr<kesta> db = storetest::makeDb(fields, table);
  db->add_param("Mode", "x");
  db->clear_changed();
  return db;
}

Zr::Ptr<kesta> load(const testutil::TempDir& dir, const std::string& name) {
  return Zr::Ptr<kesta>(new kesta(dir.wfile(name), 0x7fffffff, false));
}

Texts column(iKST& source, unsigned field) {
  Texts out;
  for (unsigned r = 0; r < source.get_num_records(); ++r) out.push_back(source.getField(r, field).c_str());
  return out;
}

// Everything observable about a database's records: every field, the tag and the changed mark.
Texts snapshot(kesta& db) {
  Texts out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    Zr::Ptr<dbrecord> record = db.get_record(r);
    std::string line;
    for (unsigned short f = 0; f < record->get_num_fields(); ++f) line += std::string(record->get_field(f)) + "|";
    out.push_back(line + " tag " + std::to_string(record->get_tag()) + (record->changed() ? " changed" : ""));
  }
  return out;
}

const std::string kHead =
    "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"Own:1\"\n\"KESTA\"\n\"32\",\"24\",\"1\"\n\"text\",\"text\",\"text\"\n"
    "\"Name\",\"Scene\",\"Tag\"\n";

TEST(ViewSave, WritesItsRowsWithItsOwnTagsAndLeavesTheDatabaseAlone) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(5);
  db->set_tag(3, 1);  // tagged in the database, not in the view
  db->set_field(4, kTag, "1");
  db->clear_changed();
  const Texts before = snapshot(*db);
  KSTView view(new KSTViewRep(db.get()));
  view->add_param("Own", "1");
  for (int row : {4, 0, 3}) view->displayRecordsAt(row, 1, static_cast<int>(view->get_num_records()));
  view->set_tag(1, 1);

  // Every way of saving writes the same file.
  struct Way {
    const char* what;
    int (*save)(KSTViewRep&, const testutil::TempDir&);
  } ways[] = {
      {"wide name", [](KSTViewRep& v, const testutil::TempDir& d) { return v.saveAsText(d.wfile("out.kst"), false); }},
      {"narrow name",
       [](KSTViewRep& v, const testutil::TempDir& d) { return v.saveAsText(d.file("out.kst").c_str(), false); }},
      {"save_text",
       [](KSTViewRep& v, const testutil::TempDir& d) {
         v.set_filename(d.wfile("out.kst"));
         return v.save_text();
       }},
  };
  for (const Way& way : ways) {
    SCOPED_TRACE(way.what);
    std::remove(dir.file("out.kst").c_str());
    EXPECT_EQ(way.save(*view, dir), 3);
    EXPECT_EQ(testutil::readFile(dir.file("out.kst")),
              kHead + "\"Shot 4\",\"s4\",\"0\"\n\"Shot 0\",\"s0\",\"1\"\n\"Shot 3\",\"s3\",\"0\"\n");
    EXPECT_EQ(snapshot(*db), before);
    EXPECT_EQ(db->changed(), 0);
  }
}

TEST(ViewSave, HeaderOnlyAndEmptyViewsWriteTheHeadAndAnswerZero) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(3);
  KSTView full(new KSTViewRep(db.get()));
  KSTView empty(new KSTViewRep(db.get()));
  for (KSTView* v : {&full, &empty}) (*v)->add_param("Own", "1");
  full->displayAllRecords();
  EXPECT_EQ(full->saveAsText(dir.wfile("head.kst"), true), 0);
  EXPECT_EQ(empty->saveAsText(dir.wfile("empty.kst"), false), 0);
  EXPECT_EQ(empty->saveOnlyTagged(dir.wfile("empty-tagged.kst")), 0);
  for (const char* name : {"head.kst", "empty.kst", "empty-tagged.kst"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(testutil::readFile(dir.file(name)), kHead);
  }
}

TEST(ViewSave, NothingIsWrittenWithoutASourceADatabaseOrAPlace) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(2);
  KSTView view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  db->set_tag(0, 1);
  EXPECT_EQ(view->saveAsText(LightweightString<wchar_t>(), false), 0);
  EXPECT_EQ(view->saveAsText(static_cast<const char*>(nullptr), false), 0);
  EXPECT_EQ(view->saveOnlyTagged(""), 0);
  EXPECT_EQ(view->save_text(), 0) << "the database has no file name, so neither has the view";

  // Detached, or chained without a database (rows to show, but no column header), or with a
  // place that cannot be written: 0 however many lines were ready, and no file.
  KSTView detached(new KSTViewRep(nullptr));
  detached->displayRecordsAt(0, 2, 0);
  KSTView headless(new KSTViewRep(nullptr));
  headless->baseView(view.get());
  headless->displayAllRecords();
  ASSERT_EQ(headless->get_num_records(), 2u);
  for (auto [source, name] :
       {std::pair{&detached, "detached.kst"}, {&headless, "headless.kst"}, {&view, "missing/out.kst"}}) {
    EXPECT_EQ((*source)->saveAsText(dir.file(name).c_str(), false), 0) << name;
    EXPECT_EQ((*source)->saveOnlyTagged(dir.wfile(name)), 0) << name;
    EXPECT_FALSE(testutil::pathExists(dir.file(name))) << name;
  }
}

TEST(ViewSave, ChainedViewsWriteTheirOwnRowsUnderTheDatabasesFullHeader) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(6);
  KSTView base(new KSTViewRep(db.get()));
  base->displayRecordsAt(1, 4, 0);  // database rows 1 .. 4
  base->tagAll(true);
  base->add_param("Own", "1");
  KSTView outer(new KSTViewRep(db.get(), "Name"));
  outer->baseView(base.get());  // takes the base view's parameters
  outer->displayRecordsAt(3, 1, 0);
  outer->displayRecordsAt(0, 1, 1);  // base rows 3, 0: database rows 4, 1
  outer->set_tag(1, 1);
  EXPECT_EQ(outer->saveAsText(dir.wfile("outer.kst"), false), 2);
  EXPECT_EQ(testutil::readFile(dir.file("outer.kst")), kHead + "\"Shot 4\",\"s4\",\"0\"\n\"Shot 1\",\"s1\",\"1\"\n");
}

TEST(ViewSave, WithoutATagFieldRecordsGoOutAsTheyAre) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(3, false);
  KSTView view(new KSTViewRep(db.get()));
  view->displayAllRecords();
  view->tagAll(true);
  db->set_tag(1, 1);
  EXPECT_EQ(view->saveAsText(dir.wfile("plain.kst"), false), 3);
  EXPECT_EQ(view->saveOnlyTagged(dir.wfile("plain-tagged.kst")), 3);
  Zr::Ptr<kesta> all = load(dir, "plain.kst");
  ASSERT_EQ(all->get_num_fields(), 2u);
  EXPECT_EQ(column(*all, kName), column(*db, kName));
  EXPECT_EQ(column(*all, 1u), column(*db, 1u));
  Zr::Ptr<kesta> tagged = load(dir, "plain-tagged.kst");
  EXPECT_EQ(column(*tagged, kName), (Texts{"Shot 1"}));
  EXPECT_EQ(column(*tagged, 1u), (Texts{"s1"}));
}

TEST(ViewSaveOnlyTagged, WritesTheRecordsTheDatabaseTagsAndAnswersTheRowCount) {
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(6);
  db->set_field(2, kTag, "7");                            // the record's own text goes out untouched
  for (unsigned row : {2u, 4u, 5u}) db->set_tag(row, 1);  // row 5 is not in the view
  KSTView view(new KSTViewRep(db.get()));
  view->add_param("Own", "1");
  for (int row : {4, 3, 2, 1, 0}) view->displayRecordsAt(row, 1, static_cast<int>(view->get_num_records()));
  view->set_tag(1, 1);  // database rows 3 and 1: tagged in the view only
  view->set_tag(3, 1);
  EXPECT_EQ(view->saveOnlyTagged(dir.wfile("tagged.kst")), 5);
  EXPECT_EQ(testutil::readFile(dir.file("tagged.kst")), kHead + "\"Shot 4\",\"s4\",\"\"\n\"Shot 2\",\"s2\",\"7\"\n");
  EXPECT_STREQ(db->getField(2, kTag).c_str(), "7");
  // The same view saved whole carries the view's flags instead.
  EXPECT_EQ(view->saveAsText(dir.wfile("whole.kst"), false), 5);
  Zr::Ptr<kesta> whole = load(dir, "whole.kst");
  EXPECT_EQ(column(*whole, kName), (Texts{"Shot 4", "Shot 3", "Shot 2", "Shot 1", "Shot 0"}));
  EXPECT_EQ(column(*whole, kTag), (Texts{"0", "1", "0", "1", "0"}));
  // With the database's tags gone, the tagged-only file has no records but the same answer.
  db->set_all_tags(0);
  EXPECT_EQ(view->saveOnlyTagged(dir.file("none.kst").c_str()), 5);
  EXPECT_EQ(testutil::readFile(dir.file("none.kst")), kHead);
}

TEST(ViewSave, RowsThatNameNoRecordAreSkipped) {
  // database <- a <- b; deleting b's first row leaves b an entry that wraps past every row.
  testutil::TempDir dir;
  Zr::Ptr<kesta> db = makeDatabase(4);
  KSTView a(new KSTViewRep(db.get()));
  a->add_param("Own", "1");
  a->displayAllRecords();
  KSTView b(new KSTViewRep(db.get()));
  b->baseView(a.get());
  b->displayAllRecords();
  b->deleteRecords(0, 1);
  ASSERT_EQ(b->get_num_records(), 2u);
  ASSERT_EQ((*b)[0], nullptr);
  ASSERT_NE((*b)[1], nullptr);
  const std::string shown = b->getField(1, kName).c_str();
  b->tagAll(true);
  db->set_all_tags(1);
  EXPECT_EQ(b->saveAsText(dir.wfile("b.kst"), false), 1);
  EXPECT_EQ(column(*load(dir, "b.kst"), kName), (Texts{shown}));
  EXPECT_EQ(b->saveOnlyTagged(dir.wfile("b-tagged.kst")), 2);
  EXPECT_EQ(column(*load(dir, "b-tagged.kst"), kName), (Texts{shown}));
}

}  // namespace
