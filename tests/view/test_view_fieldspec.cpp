// Field specifications: how the text is split and looked up, the warnings for unknown names,
// the order a second call leaves, the printed form, exact-case lookup, what derived views
// inherit, and a text copy that cannot be allocated.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "expr/SExprRef.h"
#include "support/Log.h"
#include "support/OS.h"
#include "view/KSTView.h"
#include "view/ViewProbe.h"

namespace {

// Name, Scene and Tag, with `rows` records named "n<i>".
Zr::Ptr<kesta> makeDatabase(int rows = 0) {
  return storetest::makeDb(
      {{"Name", DBFieldTypes::kText}, {"Scene", DBFieldTypes::kText}, {"Tag", DBFieldTypes::kText}},
      storetest::namedRows(rows, "n"));
}

std::string warning(const std::string& name) {
  return "Warning: KSTView::fieldSpec, non-existant fieldname \"" + name + "\".\n";
}

// The field numbers of the view's field list, in list order; each reference must name the
// source given.
std::vector<unsigned> fieldsOf(const KSTViewRep& view, const iKST* source) {
  std::vector<unsigned> out;
  for (SExpr* cell = view.fieldList(); cell; cell = cell->next()) {
    auto* ref = dynamic_cast<SExprRef*>(cell->element());
    if (!ref) {
      ADD_FAILURE() << "a field list cell holds something other than a field reference";
      continue;
    }
    EXPECT_EQ(ref->source(), source);
    out.push_back(ref->field());
  }
  return out;
}

std::string printed(KSTViewRep& view) {
  GrowString out;
  view.asString(out);
  return out.c_str();
}

TEST(ViewFieldSpec, TextsSplitIntoKnownNamesAndWarnAboutTheRest) {
  Zr::Ptr<kesta> db = makeDatabase();
  struct Case {
    const char* spec;
    std::vector<unsigned> fields;
    std::string log;
  } cases[] = {
      {"Name,,Tape\tScene,", {0, 1}, warning("Tape")},
      {"Tag\t\tName", {2, 0}, ""},
      {"", {}, ""},
      {",\t,,\t", {}, ""},
      {"Scene,Scene", {1, 1}, ""},
      // Blanks belong to the names and case matters.
      {" Name,scene,Tag ", {}, warning(" Name") + warning("scene") + warning("Tag ")},
      {"Reel,Name,Notes", {0}, warning("Reel") + warning("Notes")},
  };
  for (const Case& c : cases) {
    CapturingLogSink capture;
    KSTView view(new KSTViewRep(db.get(), c.spec));
    EXPECT_EQ(capture.text(), c.log) << c.spec;
    EXPECT_EQ(fieldsOf(*view, db.get()), c.fields) << c.spec;
    EXPECT_STREQ(view->fieldSpec(), c.spec) << "the text is kept whole";
  }

  KSTView view(new KSTViewRep(db.get(), "Name,,Tape\tScene,"));
  EXPECT_EQ(printed(*view), "fieldSpec: Name,,Tape\tScene,\nfields: (Name Scene)\n");
  KSTView nothing_known(new KSTViewRep(db.get(), "Reel"));
  EXPECT_EQ(printed(*nothing_known), "fieldSpec: Reel\n");
}

TEST(ViewFieldSpec, ConstructorsGiveIdentityListsOrTheCallersText) {
  Zr::Ptr<kesta> db = makeDatabase();
  KSTView identity(new KSTViewRep(db.get()));
  EXPECT_STREQ(identity->fieldSpec(), "Name,Scene,Tag");
  EXPECT_EQ(fieldsOf(*identity, db.get()), (std::vector<unsigned>{0, 1, 2}));
  KSTView null_text(new KSTViewRep(db.get(), static_cast<const char*>(nullptr)));
  EXPECT_STREQ(null_text->fieldSpec(), "Name,Scene,Tag");

  const char* names[] = {"Tag", "Name", nullptr};
  KSTView listed(new KSTViewRep(db.get(), names));
  EXPECT_STREQ(listed->fieldSpec(), "Tag,Name,");
  EXPECT_EQ(fieldsOf(*listed, db.get()), (std::vector<unsigned>{2, 0}));
  const char* none[] = {nullptr};
  KSTView no_names(new KSTViewRep(db.get(), none));
  EXPECT_STREQ(no_names->fieldSpec(), "");
  KSTView null_list(new KSTViewRep(db.get(), static_cast<const char**>(nullptr)));
  EXPECT_STREQ(null_list->fieldSpec(), "Name,Scene,Tag");

  // No fields, or no database: an empty text, no list, and only the first printed line.
  Zr::Ptr<kesta> bare(new kesta(std::vector<DBFieldDesc>{}));
  for (kesta* source : {bare.get(), static_cast<kesta*>(nullptr)}) {
    KSTView empty(new KSTViewRep(source));
    EXPECT_EQ(empty->fieldList(), nullptr);
    EXPECT_EQ(printed(*empty), "fieldSpec: \n");
    GrowString names_out;
    names_out.append("kept");
    empty->identityFieldSpec(names_out);
    EXPECT_STREQ(names_out.c_str(), "kept");
  }
  GrowString appended;
  appended.append("x:");
  identity->identityFieldSpec(appended);
  EXPECT_STREQ(appended.c_str(), "x:Name,Scene,Tag");
}

TEST(ViewFieldSpec, LaterCallsStackOnTheListAndTurnItRound) {
  Zr::Ptr<kesta> db = makeDatabase();
  KSTView view(new KSTViewRep(db.get(), "Name,Scene"));  // A, B
  view->fieldSpec("Tag");                                // pushes N: N, A, B, then reversed
  EXPECT_EQ(fieldsOf(*view, db.get()), (std::vector<unsigned>{1, 0, 2}));
  EXPECT_STREQ(view->fieldSpec(), "Tag");
  view->fieldSpec("Tag,Name");  // Name, Tag pushed: 0, 2, 1, 0, 2 reversed
  EXPECT_EQ(fieldsOf(*view, db.get()), (std::vector<unsigned>{2, 0, 1, 2, 0}));

  // Null frees the text and keeps the list.
  view->fieldSpec(nullptr);
  EXPECT_EQ(view->fieldSpec(), nullptr);
  EXPECT_EQ(fieldsOf(*view, db.get()), (std::vector<unsigned>{2, 0, 1, 2, 0}));
  EXPECT_EQ(printed(*view), "fieldSpec: \nfields: (Tag Name Scene Tag Name)\n");

  // References name the source of the moment: after chaining, the base view.
  KSTView base(new KSTViewRep(db.get()));
  KSTView outer(new KSTViewRep(db.get(), "Scene"));
  outer->baseView(base.get());
  outer->fieldSpec("Tag");
  SExpr* first = outer->fieldList();
  ASSERT_NE(first, nullptr);
  ASSERT_NE(first->next(), nullptr);
  EXPECT_EQ(dynamic_cast<SExprRef*>(first->element())->source(), db.get());
  EXPECT_EQ(dynamic_cast<SExprRef*>(first->next()->element())->source(), base.get());
}

// A database that reports whatever field list a test gives it.
class OddFields : public kesta {
 public:
  using kesta::kesta;
  unsigned get_num_fields() const override { return count; }
  const char* get_fieldname(unsigned field) const override { return field < names.size() ? names[field] : ""; }
  unsigned count = 0;
  std::vector<const char*> names;
};

TEST(ViewFieldSpec, FieldIndexMatchesExactlyAndFirst) {
  Zr::Ptr<OddFields> db(new OddFields(std::vector<DBFieldDesc>{}));
  KSTView view(new KSTViewRep(db.get(), ""));
  db->names = {"Name", "Scene", "Name", "name"};
  db->count = 4;
  struct Case {
    const char* name;
    int field;
  } cases[] = {{"Name", 0}, {"name", 3}, {"Scene", 1}, {"NAME", -1}, {"Scen", -1}, {"", -1}};
  for (const Case& c : cases) EXPECT_EQ(view->dbFieldIndex(c.name), c.field) << c.name;

  db->count = 0;
  EXPECT_EQ(view->dbFieldIndex("Name"), -1);
  db->count = 0x80000000u;  // a negative count
  EXPECT_EQ(view->dbFieldIndex("Name"), 0);

  KSTView detached(new KSTViewRep(nullptr));
  EXPECT_EQ(detached->dbFieldIndex("Name"), -1);
}

TEST(ViewFieldSpec, DerivedViewsInheritTheText) {
  Zr::Ptr<kesta> db = makeDatabase(4);
  KSTView view(new KSTViewRep(db.get(), "Scene,Bogus"));
  view->displayAllRecords();
  view->set_tag(2, 1);
  EXPECT_STREQ(view.copy()->fieldSpec(), "Scene,Bogus");
  EXPECT_STREQ(KSTView(view->newTagSubview())->fieldSpec(), "Scene,Bogus");
  EXPECT_STREQ(view.copyWithNewBaseView()->fieldSpec(), "Name,Scene,Tag") << "a new database: every field";

  // The sorting temporary of duplicate tagging is built on the same text: it warns again.
  CapturingLogSink capture;
  view->tagDuplicates(0);
  EXPECT_EQ(capture.text(), warning("Bogus"));
}

TEST(ViewFieldSpec, ATextCopyThatCannotBeAllocatedLeavesNoText) {
  Zr::Ptr<kesta> db = makeDatabase();
  KSTView view(new KSTViewRep(db.get(), "Name,Scene"));
  // An unusual length, so that only the copy of this text asks for its size.
  const std::string spec = "Tag" + std::string(1000, ',') + "Nowhere";
  CapturingLogSink capture;
  {
    testutil::TestAllocator failing;
    failing.failSize(spec.size() + 1);
    view->fieldSpec(spec.c_str());
    EXPECT_EQ(failing.failures(), 1);
  }
  EXPECT_EQ(view->fieldSpec(), nullptr);
  EXPECT_EQ(fieldsOf(*view, db.get()), (std::vector<unsigned>{0, 1}));
  EXPECT_EQ(capture.text(), "");

  // Nothing is left broken: the next text is taken as usual.
  view->fieldSpec(spec.c_str());
  EXPECT_EQ(capture.text(), warning("Nowhere"));
  EXPECT_EQ(fieldsOf(*view, db.get()), (std::vector<unsigned>{1, 0, 2}));
}

}  // namespace
