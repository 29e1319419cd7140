// The log: exact captured text, what reaches standard error, and KESTA_LOG naming a file.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "common/TestUtil.h"
#include "support/Log.h"

TEST(Log, CaptureReceivesTheExactText) {
  testing::internal::CaptureStderr();
  std::string captured;
  {
    CapturingLogSink capture;
    dorp_printf("kesta::add_text: returning because no more lines\n");
    LogBoth("kesta::add_text: %s %d of %u\n", "filled", -3, 7u);
    kes_splat("KSTViewRep::sortIndex(), not implemented!\n");
    captured = capture.text();
    capture.clear();
    {
      CapturingLogSink inner;  // nested captures restore the outer one
      dorp_printf("inner\n");
      EXPECT_EQ(inner.text(), "inner\n");
    }
    dorp_printf("%s", std::string(5000, 'a').c_str());
    EXPECT_EQ(capture.text(), std::string(5000, 'a'));
  }
  EXPECT_EQ(captured,
            "kesta::add_text: returning because no more lines\n"
            "kesta::add_text: filled -3 of 7\n"
            "KSTViewRep::sortIndex(), not implemented!\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Log, DefaultSendsOnlyLostWorkToStderr) {
  if (std::getenv("KESTA_LOG")) GTEST_SKIP() << "KESTA_LOG is set";
  testing::internal::CaptureStderr();
  dorp_printf("quiet %d\n", 1);
  LogBoth("loud %d\n", 2);
  kes_splat("splat\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "loud 2\nsplat\n");
}

TEST(Log, LinesFromSeveralThreadsStayWhole) {
  CapturingLogSink capture;
  auto writer = [](int who) {
    for (int i = 0; i < 500; ++i) LogBoth("thread %d line %d %s\n", who, i, "padding padding padding");
  };
  std::thread a(writer, 0), b(writer, 1);
  a.join();
  b.join();
  std::istringstream in(capture.text());
  std::set<std::string> seen;
  for (std::string line; std::getline(in, line);) {
    int who = -1, i = -1;
    char tail[64] = {};
    ASSERT_EQ(std::sscanf(line.c_str(), "thread %d line %d %63[a-z ]", &who, &i, tail), 3) << line;
    EXPECT_STREQ(tail, "padding padding padding");
    seen.insert(line);
  }
  EXPECT_EQ(seen.size(), 1000u);
}

// Run by CTest in its own process with KESTA_LOG naming a file (tests/support/extra.cmake).
TEST(LogEnv, EachLineIsInTheFileWhenTheCallReturns) {
  const char* path = std::getenv("KESTA_LOG");
  if (!path || std::strcmp(path, "stderr") == 0) GTEST_SKIP() << "KESTA_LOG does not name a file";
  std::string before = testutil::readFile(path);
  dorp_printf("first %d\n", 1);
  EXPECT_EQ(testutil::readFile(path), before + "first 1\n");
  testing::internal::CaptureStderr();
  LogBoth("second\n");
  kes_splat("third\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "second\nthird\n");
  EXPECT_EQ(testutil::readFile(path), before + "first 1\nsecond\nthird\n");
}
