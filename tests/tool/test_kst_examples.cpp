// The bundled example log through CSV and back, byte for byte.

#include "KstTest.h"

namespace ksttest {
namespace {

using KstExamples = KstTest;

TEST_F(KstExamples, CsvRoundTripOfTheExampleLogIsByteExact) {
  const std::string file = put("dailies.kst", testutil::readFile(testutil::example("dailies.kst")));
  ASSERT_GT(load("dailies.kst")->get_num_records(), 20u);
  kstOk({"convert", file, path("d.csv")}, {"d.csv"});
  kstOk({"convert", path("d.csv"), path("d2.kst"), "--template", file}, {"d2.kst"});
  EXPECT_EQ(read("d2.kst"), read("dailies.kst"));  // with the template, byte for byte
}

}  // namespace
}  // namespace ksttest
