// A database of the kesta class itself, showing all its records, reaches its records without
// going through its virtual row calls. A class derived from it takes the general way, so the
// two must answer alike: duplicate tagging, query tagging and saves, on records holding field
// strings or lines, with rows that have no record.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/StoreTestUtil.h"

namespace {

using storetest::columnOf;
using storetest::Rows;

class Derived : public kesta {
 public:
  using kesta::kesta;
};

const std::vector<DBFieldDesc> kFields = {{"Name", DBFieldTypes::kText},
                                          {"Reel", DBFieldTypes::kText},
                                          {"Start time", DBFieldTypes::kTimecode},
                                          {"End time", DBFieldTypes::kTimecode},
                                          {"Tag", DBFieldTypes::kText}};

const std::string kLong(256, 'x');  // one byte over what duplicate tagging compares

// Case-only differences, empty values, values over the 255 bytes that duplicate tagging
// compares, and a value with a zero byte, which compares as far as that byte.
const Rows kRows = {
    {"r0", "A001", "01:00:05:00", "01:00:20:00", "0"},
    {"r1", "a001", "01:00:10:00", "01:00:12:00", "1"},
    {"r2", "", "02:00:00:00", "02:10:00:00", "0"},
    {"r3", kLong, "", "01:00:20:00", "0"},
    {"r4", kLong, "01:00:05:00", "01:00:06:00", "7"},
    {"r5", "b9", "", "", "0"},
    {"r6", std::string("b9\0x", 4), "01:00:10:00", "", ""},
    {"r7", "say \"hi\"", "01:00:11:00", "01:00:13:00", "0"},
};

// The rows above, then `holes` rows without a record in the middle of the list.
template <class Db>
Zr::Ptr<kesta> build(bool as_lines, unsigned holes) {
  Zr::Ptr<kesta> db(new Db(kFields));
  for (const auto& row : kRows) {
    const unsigned r = db->add_records(1);
    for (unsigned f = 0; f < row.size(); ++f) db->setField(r, f, LightweightString<char>(row[f].data(), row[f].size()));
  }
  if (as_lines) {
    EXPECT_TRUE(storetest::holdAsLines(*db));
  }
  // insert_records leaves one record and holes - 1 rows without one.
  if (holes > 0) db->insert_records(3, holes + 1);
  for (unsigned r = 0; r < db->get_num_records(); r += 3) db->set_tag(r, 1);
  return db;
}

std::vector<int> tags(iKST& db) {
  std::vector<int> out;
  for (unsigned r = 0; r < db.get_num_records(); ++r) out.push_back(db.get_tag(r));
  return out;
}

struct Pair {
  Zr::Ptr<kesta> exact;
  Zr::Ptr<kesta> derived;
  Pair(bool as_lines, unsigned holes)
      : exact(build<kesta>(as_lines, holes)), derived(build<Derived>(as_lines, holes)) {}
};

TEST(ExactClass, DuplicateAndQueryTaggingAnswerAsADerivedClass) {
  for (bool as_lines : {false, true}) {
    for (unsigned holes : {0u, 3u}) {
      const std::string form = std::string(as_lines ? "lines" : "fields") + ", holes " + std::to_string(holes);
      for (unsigned field = 0; field < kFields.size(); ++field) {
        Pair p(as_lines, holes);
        EXPECT_EQ(p.exact->tag_all_different(static_cast<int>(field)),
                  p.derived->tag_all_different(static_cast<int>(field)))
            << form << ", field " << field;
        EXPECT_EQ(tags(*p.exact), tags(*p.derived)) << form << ", field " << field;
        EXPECT_EQ(columnOf(*p.exact, 0), columnOf(*p.derived, 0)) << form << ", field " << field;
      }
      for (const std::vector<std::string>& query :
           {std::vector<std::string>{"", "a0"}, {"", "", "01:00:1"}, {"r", "", "", "", "0"}}) {
        for (int keep : {0, 1}) {
          Pair p(as_lines, holes);
          Zr::Ptr<dbrecord> q(new dbrecord(static_cast<unsigned short>(kFields.size())));
          for (unsigned i = 0; i < query.size(); ++i) q->set_field(static_cast<int>(i), query[i].c_str());
          p.exact->set_query(q.get());
          p.derived->set_query(q.get());
          EXPECT_EQ(p.exact->tag_matching_records(keep), p.derived->tag_matching_records(keep))
              << form << ", query on " << query.back() << ", keep " << keep;
          EXPECT_EQ(tags(*p.exact), tags(*p.derived)) << form << ", query on " << query.back() << ", keep " << keep;
        }
      }
    }
  }
}

TEST(ExactClass, SavesWriteAsADerivedClassAndKeepTheSameMarks) {
  testutil::TempDir dir;
  for (bool as_lines : {false, true}) {
    Pair p(as_lines, 2);
    p.exact->clear_changed();
    p.derived->clear_changed();
    p.exact->set_field(1, 0, "changed before the save");
    p.derived->set_field(1, 0, "changed before the save");
    p.exact->set_filename(testutil::wide(dir.file("exact.kst")));
    p.derived->set_filename(testutil::wide(dir.file("derived.kst")));
    ASSERT_EQ(p.exact->save_text(), p.derived->save_text());
    EXPECT_EQ(testutil::readFile(dir.file("exact.kst")), testutil::readFile(dir.file("derived.kst")));
    EXPECT_EQ(columnOf(*p.exact, 4), columnOf(*p.derived, 4)) << "tag texts";
    for (unsigned r = 0; r < p.exact->get_num_records(); ++r) {
      const Zr::Ptr<dbrecord> a = p.exact->get_record(r);
      const Zr::Ptr<dbrecord> b = p.derived->get_record(r);
      ASSERT_EQ(a.get() == nullptr, b.get() == nullptr) << r;
      if (a) {
        EXPECT_EQ(a->changed(), b->changed()) << r;
      }
    }
    // Every tag store marks the database, even one that leaves the text as it was.
    p.exact->clear_changed();
    p.derived->clear_changed();
    ASSERT_EQ(p.exact->save_text(), p.derived->save_text());
    EXPECT_EQ(p.exact->changed(), p.derived->changed()) << "the database's mark";
  }
}

}  // namespace
