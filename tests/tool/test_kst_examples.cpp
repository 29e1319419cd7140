// The commands on the bundled example logs, checked against what the library itself reads from
// the same files.

#include <kesta/kesta.h>
#include <strings.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "KstTest.h"

namespace ksttest {
namespace {

class KstExamples : public KstTest {
 protected:
  void SetUp() override {
    KstTest::SetUp();
    if (IsSkipped()) return;
    file_ = example("dailies.kst");
    db_ = load("dailies.kst");
    ASSERT_GT(db_->get_num_records(), 20u);
  }
  std::string file_;
  Zr::Ptr<kesta> db_;
};

TEST_F(KstExamples, InfoCountsWhatTheLibraryReads) {
  Result r = kst({"info", file_, "--format", "json"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("\"records\": " + std::to_string(db_->get_num_records()) + ","), std::string::npos);
  unsigned tagged = 0;
  for (const auto& t : column(*db_, "Tag")) tagged += t == "1";
  EXPECT_GT(tagged, 0u);
  EXPECT_NE(r.out.find("\"tagged\": " + std::to_string(tagged) + ","), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"columns\": ["), std::string::npos);
}

TEST_F(KstExamples, ShowLimitsAndChoosesColumns) {
  Result r = kst({"show", file_, "--limit", "5", "--columns", "Name,Reel,Scene,Start time", "--format", "tsv"});
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> got = lines(r.out);
  ASSERT_EQ(got.size(), 6u);
  EXPECT_EQ(got[0], "Name\tReel\tScene\tStart time");
  auto names = column(*db_, "Name");
  auto starts = column(*db_, "Start time");
  for (std::size_t i = 1; i < got.size(); ++i) {
    EXPECT_EQ(got[i].substr(0, got[i].find('\t')), names[i - 1]);
    EXPECT_EQ(got[i].substr(got[i].rfind('\t') + 1), starts[i - 1]);
  }
}

TEST_F(KstExamples, SortOrdersByReelThenStartTime) {
  Result r = kst({"sort", file_, "--by", "Reel,Start time", "-o", path("sorted.kst")}, {"sorted.kst"});
  ASSERT_EQ(r.status, 0) << r.err;
  auto sorted = load("sorted.kst");
  ASSERT_EQ(sorted->get_num_records(), db_->get_num_records());
  auto reels = column(*sorted, "Reel");
  auto starts = column(*sorted, "Start time");
  for (std::size_t i = 1; i < reels.size(); ++i) {
    EXPECT_LE(std::make_pair(reels[i - 1], starts[i - 1]), std::make_pair(reels[i], starts[i])) << "row " << i;
  }
  // The same records, the same tags.
  auto cookies = column(*sorted, "Cookie"), original = column(*db_, "Cookie");
  EXPECT_EQ(std::multiset<std::string>(cookies.begin(), cookies.end()),
            std::multiset<std::string>(original.begin(), original.end()));
  auto tags = column(*sorted, "Tag"), original_tags = column(*db_, "Tag");
  EXPECT_EQ(std::count(tags.begin(), tags.end(), "1"), std::count(original_tags.begin(), original_tags.end(), "1"));
}

TEST_F(KstExamples, FindAndDistinctAgreeWithAScan) {
  Result found = kst({"find", file_, "Scene=12", "--columns", "Cookie,Scene", "--format", "csv"});
  ASSERT_EQ(found.status, 0) << found.err;
  std::vector<std::string> got = lines(found.out);
  std::size_t expected = 0;
  for (const auto& scene : column(*db_, "Scene")) expected += strcasestr(scene.c_str(), "12") != nullptr;
  ASSERT_GT(expected, 0u);
  EXPECT_EQ(got.size(), expected + 1);
  for (std::size_t i = 1; i < got.size(); ++i) EXPECT_NE(got[i].find("12"), std::string::npos) << got[i];

  Result distinct = kst({"distinct", file_, "--field", "Reel", "--columns", "Reel", "--format", "csv"});
  ASSERT_EQ(distinct.status, 0);
  std::vector<std::string> reels = lines(distinct.out);
  reels.erase(reels.begin());
  for (auto& reel : reels) reel.pop_back();  // the CR of the CRLF line end
  auto all = column(*db_, "Reel");
  std::set<std::string> unique(all.begin(), all.end());
  EXPECT_EQ(std::set<std::string>(reels.begin(), reels.end()), unique);
  EXPECT_EQ(reels.size(), unique.size());
}

TEST_F(KstExamples, CsvRoundTripKeepsEveryValue) {
  ASSERT_EQ(kst({"convert", file_, path("d.csv")}, {"d.csv"}).status, 0);
  ASSERT_EQ(kst({"convert", path("d.csv"), path("d2.kst"), "--template", file_}, {"d2.kst"}).status, 0);
  auto back = load("d2.kst");
  ASSERT_EQ(back->get_num_fields(), db_->get_num_fields());
  ASSERT_EQ(back->get_num_records(), db_->get_num_records());
  for (unsigned f = 0; f < db_->get_num_fields(); ++f) {
    EXPECT_STREQ(back->get_fieldname(f), db_->get_fieldname(f));
    EXPECT_EQ(back->get_field_type(f), db_->get_field_type(f));
    for (unsigned r = 0; r < db_->get_num_records(); ++r) {
      ASSERT_EQ(back->getField(r, f), db_->getField(r, f)) << "row " << r << " column " << db_->get_fieldname(f);
    }
  }
  // With the template the whole file comes back byte for byte.
  EXPECT_EQ(read("d2.kst"), read("dailies.kst"));
}

TEST_F(KstExamples, TheBundledCsvLoadsBothWays) {
  std::string csv = example("dailies.csv");
  Result shown = kst({"show", csv, "--columns", "Name,Reel", "--format", "csv"});
  ASSERT_EQ(shown.status, 0) << shown.err;
  Result converted = kst({"convert", csv, "-", "--to", "csv", "--columns", "Name,Reel"});
  ASSERT_EQ(converted.status, 0) << converted.err;
  // The file has no quotes, so the library's load and the RFC 4180 reader agree.
  EXPECT_EQ(shown.out, converted.out);
  EXPECT_EQ(lines(shown.out).size(), lines(read("dailies.csv")).size());
}

}  // namespace
}  // namespace ksttest
