// The bundled example log through CSV and back, checked against what the library reads.

#include "KstTest.h"

namespace ksttest {
namespace {

using KstExamples = KstTest;

TEST_F(KstExamples, CsvRoundTripOfTheExampleLogIsByteExact) {
  const std::string file = put("dailies.kst", testutil::readFile(testutil::example("dailies.kst")));
  auto db = load("dailies.kst");
  ASSERT_GT(db->get_num_records(), 20u);
  ASSERT_EQ(kst({"convert", file, path("d.csv")}, {"d.csv"}).status, 0);
  ASSERT_EQ(kst({"convert", path("d.csv"), path("d2.kst"), "--template", file}, {"d2.kst"}).status, 0);
  auto back = load("d2.kst");
  ASSERT_EQ(back->get_num_fields(), db->get_num_fields());
  ASSERT_EQ(back->get_num_records(), db->get_num_records());
  for (unsigned f = 0; f < db->get_num_fields(); ++f) {
    EXPECT_STREQ(back->get_fieldname(f), db->get_fieldname(f));
    EXPECT_EQ(back->get_field_type(f), db->get_field_type(f));
    for (unsigned r = 0; r < db->get_num_records(); ++r)
      ASSERT_EQ(back->getField(r, f), db->getField(r, f)) << "row " << r << " column " << db->get_fieldname(f);
  }
  EXPECT_EQ(read("d2.kst"), read("dailies.kst"));  // with the template, byte for byte
}

}  // namespace
}  // namespace ksttest
