// The bundled example log through CSV and back, byte for byte.

#include "KstTest.h"

namespace ksttest {
namespace {

using KstExamples = KstTest;

TEST_F(KstExamples, CsvRoundTripOfTheExampleLogIsByteExact) {
  const std::string file = put("dailies.kst", testutil::readFile(testutil::example("dailies.kst")));
  ASSERT_GT(load("dailies.kst")->get_num_records(), 20u);
  ASSERT_EQ(kst({"convert", file, path("d.csv")}, {"d.csv"}).status, 0);
  ASSERT_EQ(kst({"convert", path("d.csv"), path("d2.kst"), "--template", file}, {"d2.kst"}).status, 0);
  EXPECT_EQ(read("d2.kst"), read("dailies.kst"));  // with the template, byte for byte
}

}  // namespace
}  // namespace ksttest
