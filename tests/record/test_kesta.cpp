// kesta as an object: construction and life cycle, columns and their name index, named
// parameters, typed field access by row, and copies that share their parameters.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "record/StoreTestUtil.h"
#include "record/kesta.h"

namespace {

using storetest::columnOf;
using storetest::makeDb;
using storetest::Rows;
using T = DBFieldTypes;

constexpr unsigned kNone = 0xFFFFFFFFu;

std::vector<std::string> paramsOf(const KSTBase& db) {
  std::vector<std::string> out;
  for (const Zr::AttribValuePair& p : db.params())
    out.push_back(std::string(p.name().c_str()) + "=" + p.value().c_str());
  return out;
}

std::vector<std::string> namesOf(const kesta& db) {
  std::vector<std::string> out;
  for (unsigned f = 0; f < db.get_num_fields(); ++f) out.emplace_back(db.get_fieldname(f));
  return out;
}

const std::vector<DBFieldDesc> kLogFields = {
    {"Name", T::kText}, {"Scene", T::kText}, {"Start time", T::kTimecode}, {"Cookie", T::kText}, {"Tag", T::kText}};

TEST(KestaConstruction, ValidityAndColumnsByConstructor) {
  kesta empty;
  EXPECT_EQ(empty.get_valid(), 0);
  EXPECT_EQ(empty.get_num_fields(), 0u);
  EXPECT_EQ(empty.get_num_records(), 0u);
  EXPECT_EQ(empty.get_revision(), 1);

  // The descriptor array ends at the first descriptor of type 0, whatever follows it.
  const DBFieldDesc array[] = {{"Name", T::kText}, {"Reel", T::kText}, {"Stop", T::kNone}, {"After", T::kText}};
  kesta from_array(array);
  EXPECT_EQ(from_array.get_valid(), 1);
  EXPECT_EQ(namesOf(from_array), (std::vector<std::string>{"Name", "Reel"}));

  kesta from_vector(kLogFields);
  EXPECT_EQ(from_vector.get_valid(), 1);
  EXPECT_EQ(from_vector.get_num_fields(), 5u);
  EXPECT_EQ(from_vector.get_field_type(2), T::kTimecode);

  // free() drops records, columns and parameters and leaves the database invalid.
  auto db = makeDb(kLogFields, {{"a"}, {"b"}});
  db->set_param_val("Mode", "x");
  db->free();
  EXPECT_EQ(db->get_valid(), 0);
  EXPECT_EQ(db->get_num_fields(), 0u);
  EXPECT_EQ(db->get_num_records(), 0u);
  EXPECT_EQ(db->num_params(), 0u);
  EXPECT_EQ(db->get_fieldnum("Name"), kNone);

  // setFields replaces columns (also when handed the database's own list) and drops records.
  auto again = makeDb(kLogFields, {{"a"}});
  again->setFields(again->fields());
  EXPECT_EQ(again->get_valid(), 1);
  EXPECT_EQ(namesOf(*again), namesOf(from_vector));
  EXPECT_EQ(again->get_num_records(), 0u);
}

TEST(KestaConstruction, NewRecordsFollowTheColumns) {
  kesta db(kLogFields);
  Zr::Ptr<dbrecord> owned = db.newRecord();
  Zr::Ptr<dbrecord> dummy = db.make_dummy_record();
  EXPECT_EQ(owned->get_num_fields(), 5u);
  EXPECT_EQ(dummy->get_num_fields(), 5u);
  EXPECT_EQ(owned->get_container(), &db);
  EXPECT_EQ(dummy->get_container(), nullptr);
  EXPECT_EQ(db.get_num_records(), 0u) << "neither is added to the list";

  owned->set_field(0, "x");
  EXPECT_EQ(db.changed(), 1) << "a record made by the database marks it";
  db.clear_changed();
  dummy->set_field(0, "x");
  EXPECT_EQ(db.changed(), 0);
}

TEST(KestaConstruction, RecordsOutliveTheirDatabase) {
  Zr::Ptr<dbrecord> kept;
  {
    auto db = makeDb(kLogFields, {{"a"}, {"b"}});
    kept = db->get_record(1);
  }
  ASSERT_TRUE(kept);
  EXPECT_EQ(kept->get_container(), nullptr);
  EXPECT_TRUE(kept->set_field(0, "still fine"));  // must not touch the dead database
  EXPECT_STREQ(kept->get_field(0), "still fine");
}

TEST(KestaColumns, NameLookupIgnoresCaseAndFirstWins) {
  kesta db(std::vector<DBFieldDesc>{{"Name", T::kText}, {"Scene", T::kText}, {"scene", T::kText}, {"", T::kText}});
  struct Case {
    const char* name;
    unsigned expect;
  } cases[] = {{"SCENE", 1}, {"scene", 1}, {"Scene", 1}, {"name", 0}, {"Nam", kNone}, {"", kNone}, {"Reel", kNone}};
  for (const Case& c : cases) EXPECT_EQ(db.get_fieldnum(c.name), c.expect) << c.name;

  EXPECT_STREQ(db.get_fieldname(1), "Scene");
  EXPECT_STREQ(db.get_fieldname(3), "");
  EXPECT_STREQ(db.get_fieldname(4), "") << "out of range";
  EXPECT_STREQ(db.get_fieldname(kNone), "");
  EXPECT_EQ(kesta().get_fieldnum("Name"), kNone) << "no columns";

  const kesta::FieldNameIndex& index = db.getFieldNameIndexMap();
  EXPECT_EQ(index.size(), 3u) << "Scene and scene share one entry";
  EXPECT_EQ(index.at(LightweightString<char>("SCENE")), 1u);
}

TEST(KestaColumns, AddAndRemoveFieldsReshapeEveryRecord) {
  auto db = makeDb({{"Name", T::kText}, {"Reel", T::kText}}, {{"n0", "r0"}, {"n1", "r1"}});

  EXPECT_EQ(db->addField(DBFieldDesc("REEL", T::kTimecode)), 1u) << "existing name answers its number";
  EXPECT_EQ(db->get_num_fields(), 2u);
  EXPECT_EQ(db->get_field_type(1), T::kText) << "and changes nothing";

  EXPECT_EQ(db->addField(DBFieldDesc("Notes", T::kText)), 2u);
  EXPECT_EQ(db->get_fieldnum("notes"), 2u) << "the name index sees the new column";
  for (unsigned r = 0; r < 2; ++r) {
    ASSERT_EQ(db->get_record(r)->get_num_fields(), 3u);
    EXPECT_STREQ(db->get_record(r)->get_field(2), "");
  }
  db->set_field(1, 2, "late note");

  db->removeField("reel");
  EXPECT_EQ(namesOf(*db), (std::vector<std::string>{"Name", "Notes"}));
  EXPECT_EQ(db->get_fieldnum("Notes"), 1u);
  EXPECT_EQ(db->get_fieldnum("Reel"), kNone);
  EXPECT_EQ(columnOf(*db, 0), (std::vector<std::string>{"n0", "n1"}));
  EXPECT_EQ(columnOf(*db, 1), (std::vector<std::string>{"", "late note"}));
  EXPECT_EQ(db->get_record(0)->get_num_fields(), 2u);

  db->removeField("missing");
  db->removeField("");
  EXPECT_EQ(db->get_num_fields(), 2u);
}

TEST(KestaColumns, StripCharFromString) {
  struct Case {
    char c;
    const char* in;
    const char* out;
  } cases[] = {{'&', "Sc&ene", "Scene"}, {'&', "&&a&&b&&", "ab"}, {'&', "plain", "plain"}, {'&', "", ""},
               {'&', "&", ""},           {'x', "xaxbx", "ab"},    {'&', nullptr, ""}};
  for (const Case& c : cases) {
    EXPECT_STREQ(kesta::strip_char_from_string(c.c, c.in).c_str(), c.out) << (c.in ? c.in : "(null)");
  }
}

// The ampersand setting is read once per process; each test runs only in the process whose
// environment it was written for (see extra.cmake).
void checkSetFieldName(bool ampersandsRemoved) {
  kesta db(std::vector<DBFieldDesc>{{"Name", T::kText}, {"Reel", T::kText}});
  EXPECT_EQ(db.get_fieldnum("Name"), 0u);  // builds the index, which the rename must drop
  EXPECT_TRUE(db.set_fieldname(0, "Sc&ene"));
  EXPECT_STREQ(db.get_fieldname(0), ampersandsRemoved ? "Scene" : "Sc&ene");
  EXPECT_EQ(db.get_fieldnum(ampersandsRemoved ? "scene" : "sc&ene"), 0u);
  EXPECT_EQ(db.get_fieldnum("Name"), kNone);

  EXPECT_TRUE(db.set_fieldname(1, "Reel 2"));
  EXPECT_STREQ(db.get_fieldname(1), "Reel 2");
  EXPECT_TRUE(db.set_fieldname(1, nullptr));
  EXPECT_STREQ(db.get_fieldname(1), "");
  EXPECT_FALSE(db.set_fieldname(2, "Out"));
  EXPECT_EQ(db.get_num_fields(), 2u);
}

TEST(KestaSettingDefault, SetFieldNameRemovesAmpersands) {
  if (std::getenv("KESTA_REMOVE_FIELDNAME_AMPERSANDS")) GTEST_SKIP() << "the setting is given";
  checkSetFieldName(true);
}

TEST(KestaSettingOff, SetFieldNameKeepsAmpersands) {
  const char* setting = std::getenv("KESTA_REMOVE_FIELDNAME_AMPERSANDS");
  if (!setting || std::strcmp(setting, "0") != 0) GTEST_SKIP() << "runs with KESTA_REMOVE_FIELDNAME_AMPERSANDS=0";
  checkSetFieldName(false);
}

TEST(KestaParams, AddReplaceAndRead) {
  kesta db(kLogFields);
  EXPECT_EQ(db.add_param("", "x"), -1);
  // The revision pair still comes first, even when the key is refused.
  EXPECT_EQ(paramsOf(db), (std::vector<std::string>{"KESTA=Rev 1"}));

  kesta fresh(kLogFields);
  EXPECT_EQ(fresh.add_param("Mode", "x"), 0);
  EXPECT_EQ(paramsOf(fresh), (std::vector<std::string>{"KESTA=Rev 1", "Mode=x"}));
  EXPECT_EQ(fresh.add_param("MODE", "y"), 0);
  EXPECT_EQ(paramsOf(fresh), (std::vector<std::string>{"KESTA=Rev 1", "Mode=y"})) << "key keeps its spelling";
  fresh.set_param_val("editor", "Ann");
  fresh.set_param_val("Empty", "");
  ASSERT_EQ(paramsOf(fresh), (std::vector<std::string>{"KESTA=Rev 1", "Mode=y", "editor=Ann", "Empty="}));
  EXPECT_EQ(fresh.params()[1].separator(), '=');

  struct Read {
    const char* key;
    const char* value;
    int index;
  } reads[] = {{"mode", "y", 1}, {"EDITOR", "Ann", 2}, {"kesta", "Rev 1", 0},
               {"Empty", "", 3}, {"missing", "", -1},  {"", "", -1}};
  for (const Read& r : reads) {
    EXPECT_STREQ(fresh.get_param_val(r.key), r.value) << r.key;
    EXPECT_STREQ(fresh.getParamVal(r.key).c_str(), r.value) << r.key;
    EXPECT_EQ(fresh.findParamIndex(r.key), r.index) << r.key;
  }

  // An equal value keeps the stored string; a new one replaces it.
  LightweightString<char> before = fresh.getParamVal("Mode");
  fresh.add_param("Mode", LightweightString<char>("y"));
  EXPECT_EQ(fresh.getParamVal("Mode").c_str(), before.c_str());
}

TEST(KestaTypedAccess, SettersFormatAndGettersParse) {
  auto db = makeDb({{"A", T::kText}, {"B", T::kText}}, {{"", ""}, {"12abc", "t"}});

  EXPECT_TRUE(db->set_field(0u, 0u, -42));
  EXPECT_STREQ(db->getField(0, 0).c_str(), "-42");
  EXPECT_TRUE(db->set_field(0u, 1u, 1.5));
  EXPECT_STREQ(db->getField(0, 1).c_str(), "1.50000000");
  EXPECT_TRUE(db->set_field(0u, 1u, true));
  EXPECT_STREQ(db->getField(0, 1).c_str(), "t");
  EXPECT_TRUE(db->set_field(0u, 1u, false));
  EXPECT_STREQ(db->getField(0, 1).c_str(), "f");
  EXPECT_FALSE(db->set_field(5u, 0u, 1)) << "no record";
  EXPECT_FALSE(db->set_field(0u, 9u, 1)) << "no column";

  int n = 7;
  double d = 7.5;
  bool b = true;
  char buffer[8];
  std::memset(buffer, 'z', sizeof buffer);
  db->set_field(0u, 0u, "");
  // An empty field answers false and leaves every output alone.
  EXPECT_FALSE(db->in_field(0, 0, n));
  EXPECT_FALSE(db->in_field(0, 0, d));
  EXPECT_FALSE(db->in_field(0, 0, b));
  EXPECT_FALSE(db->in_field(0, 0, buffer, 4));
  EXPECT_EQ(n, 7);
  EXPECT_EQ(d, 7.5);
  EXPECT_TRUE(b);
  EXPECT_EQ(buffer[0], 'z');
  EXPECT_FALSE(db->in_field(9, 0, n)) << "no record";

  EXPECT_TRUE(db->in_field(1, 0, n));
  EXPECT_EQ(n, 12);
  EXPECT_TRUE(db->in_field(1, 0, d));
  EXPECT_EQ(d, 12.0);
  EXPECT_TRUE(db->in_field(1, 1, b));
  EXPECT_TRUE(b);
  EXPECT_TRUE(db->in_field(1, 0, b));
  EXPECT_FALSE(b) << "only a leading t is true";

  EXPECT_TRUE(db->in_field(1, 0, buffer, 3));
  EXPECT_STREQ(buffer, "12a");
  EXPECT_TRUE(db->in_field(1, 1, buffer, 6));
  EXPECT_STREQ(buffer, "t");
}

// A record source that shows only its even rows, as a database showing its tagged rows does.
class EvenRowsKesta : public kesta {
 public:
  using kesta::kesta;
  unsigned get_num_records() const override {
    return evens_only ? (kesta::get_num_records() + 1) / 2 : kesta::get_num_records();
  }
  Zr::Ptr<dbrecord> get_record(unsigned row) const override { return kesta::get_record(evens_only ? row * 2 : row); }
  bool evens_only = false;
};

TEST(KestaCopy, SharesParametersAndCopiesVisibleRecords) {
  Rows rows = {{"n0", "s0"}, {"n1", "s1"}, {"n2", "s2"}, {"n3", "s3"}, {"n4", "s4"}};
  auto original = makeDb(kLogFields, rows);
  original->set_param_val("Mode", "x");
  original->get_record(1)->set_tag(1);

  kesta copy(*original, 1);
  EXPECT_EQ(copy.get_valid(), 1);
  EXPECT_EQ(namesOf(copy), namesOf(*original));
  EXPECT_EQ(copy.get_field_type(2), T::kTimecode);
  ASSERT_EQ(copy.get_num_records(), 5u);
  EXPECT_EQ(columnOf(copy, 0), columnOf(*original, 0));
  EXPECT_NE(copy.get_record(0).get(), original->get_record(0).get()) << "records are copies";
  EXPECT_EQ(copy.get_record(0)->getField(0).c_str(), original->get_record(0)->getField(0).c_str())
      << "sharing the field strings";
  EXPECT_EQ(copy.get_record(1)->get_tag(), 0) << "a copied record starts untagged";

  // One parameter list: a change through either is seen by both.
  copy.set_param_val("Mode", "y");
  EXPECT_STREQ(original->get_param_val("Mode"), "y");
  original->set_param_val("Editor", "Ann");
  EXPECT_EQ(paramsOf(copy), (std::vector<std::string>{"KESTA=Rev 1", "Mode=y", "Editor=Ann"}));

  // Changing a copied record leaves the original's alone.
  copy.get_record(0)->set_field(0, "changed");
  EXPECT_STREQ(original->getField(0, 0).c_str(), "n0");

  kesta columns_only(*original, 0);
  EXPECT_EQ(columns_only.get_num_records(), 0u);
  EXPECT_EQ(columns_only.get_num_fields(), 5u);

  auto evens = makeDb<EvenRowsKesta>(kLogFields, rows);
  evens->evens_only = true;
  kesta from_evens(*evens, 1);
  EXPECT_EQ(columnOf(from_evens, 0), (std::vector<std::string>{"n0", "n2", "n4"}));
}

TEST(KestaCopy, CopyWhileShowingTaggedRowsHoldsOnlyThose) {
  // A plain database rebuilds its tagged index empty when it switches to tagged rows; one that
  // counts its full list shows the tagged records.
  Rows rows = {{"n0"}, {"n1"}, {"n2"}};
  auto plain = makeDb(kLogFields, rows);
  plain->set_tag(1, 1);
  plain->set_show_tags_only(1);
  EXPECT_EQ(kesta(*plain, 1).get_num_records(), 0u);

  auto full = makeDb<storetest::FullCountKesta>(kLogFields, rows);
  full->set_tag(0, 1);
  full->set_tag(2, 1);
  full->set_show_tags_only(1);
  kesta copy(*full, 1);
  EXPECT_EQ(columnOf(copy, 0), (std::vector<std::string>{"n0", "n2"}));
}

}  // namespace
