// Container files: written by the Writer, read back by the Reader, and the Reader's answers on
// files that are not containers.
#include <gtest/gtest.h>

#include "common/TestUtil.h"
#include "container/ZRContainerFile.h"
#include "support/StringUtils.h"

namespace {

DBFieldDesc kFields[] = {{"Cookie", DBFieldTypes::kText},
                         {"Reel", DBFieldTypes::kText},
                         {"Frames", DBFieldTypes::kNumeric},
                         {"", DBFieldTypes::kNone}};

class ContainerTest : public ::testing::Test {
 protected:
  testutil::TempDir dir_;
};

TEST_F(ContainerTest, WrittenItemsAndAttributesReadBack) {
  Cookie a = Cookie::generate();
  Cookie b = convertCookie(Cookie::generate(), 'M', 7);
  {
    ZRContainerFile::Writer w(kFields);
    dbrecord* item = w.addItem(a);
    ASSERT_NE(item, nullptr);
    item->set_field(1, "A001");
    item->set_field(2, "240");
    ASSERT_NE(w.addItem(b), nullptr);
    EXPECT_EQ(w.addItem(convertCookie(a, 'I', 0)), nullptr);  // refused, nothing added
    w.setName("Day 1 selects");
    w.setPermanent(true);
    w.setAttrib("Count", "12");
    w.save(dir_.wfile("day1.rak"));
  }
  ZRContainerFile::Reader r(dir_.wfile("day1.rak"), false);
  ASSERT_TRUE(r.valid());
  ASSERT_EQ(r.getNumItems(), 2u);
  EXPECT_EQ(r.getItem(0).getCookie(), a);
  EXPECT_EQ(r.getItem(1).getCookie(), b);  // kind and qualifier survive the text form
  EXPECT_EQ(r.getItem(0).getAttrib(1u), "A001");
  EXPECT_EQ(r.getItem(0).getAttrib(2u, 7), 240);
  EXPECT_EQ(r.getItem(1).getAttrib(2u, 7), 0);  // empty field: 0, not the default
  EXPECT_EQ(r.getItem(1).getAttrib(9u, 7), 7);  // no text at all: the default
  EXPECT_FALSE(r.getItem(2).isValid());
  EXPECT_TRUE(r.getItem(2).getCookie().isNull());
  EXPECT_EQ(r.getItemAttribIndex("reel"), 1);
  EXPECT_EQ(r.getItemAttribIndex("Tape"), -1);
  EXPECT_EQ(r.getItemAttribIndex(nullptr), -1);
  EXPECT_EQ(r.getName(), "Day 1 selects");
  EXPECT_EQ(r.getNameW(), LightweightString<wchar_t>(L"Day 1 selects"));
  EXPECT_TRUE(r.isPermanent());
  EXPECT_EQ(r.getAttrib("Count", 7), 12);
  EXPECT_EQ(r.getAttrib("Missing", 7), 7);
  EXPECT_DOUBLE_EQ(r.getAttrib("Missing", 2.5), 2.5);

  CookieSet contents = r.getContents();
  EXPECT_EQ(contents.size(), 2);
  EXPECT_TRUE(contents.contains(a));
  // contains reads each record's text with the lenient parse.
  EXPECT_TRUE(r.contains(a));
  EXPECT_FALSE(r.contains(Cookie::generate()));

  ZRContainerFile::Reader header_only(dir_.wfile("day1.rak"), true);
  EXPECT_TRUE(header_only.valid());
  EXPECT_EQ(header_only.getNumItems(), 0u);
  EXPECT_EQ(header_only.getName(), "Day 1 selects");
}

TEST_F(ContainerTest, ReaderOnFilesThatAreNotContainers) {
  // A log without a "Cookie" column loads but is no container.
  testutil::writeFile(dir_.file("log.kst"),
                      "\"KESTA:Rev 1\"\n\"Name:x\"\n\"KESTA\"\n\"10\"\n\"text\"\n\"Reel\"\n\"A001\"\n");
  ZRContainerFile::Reader no_cookie(dir_.wfile("log.kst"), false);
  EXPECT_FALSE(no_cookie.valid());
  EXPECT_FALSE(no_cookie.getItem(0).isValid());
  EXPECT_EQ(no_cookie.getItemAttribIndex("Reel"), -1);
  EXPECT_EQ(no_cookie.getAttrib("Name"), "");
  EXPECT_EQ(no_cookie.getContents().size(), 1);  // the one invalid item's null cookie
  EXPECT_FALSE(no_cookie.contains(Cookie::generate()));

  ZRContainerFile::Reader missing(dir_.wfile("nothing-here.rak"), false);
  EXPECT_FALSE(missing.valid());
  EXPECT_EQ(missing.getNumItems(), 0u);
  EXPECT_FALSE(missing.isPermanent());
  EXPECT_EQ(missing.getContents().size(), 0);
}

TEST_F(ContainerTest, SavingOverAnExistingFileGoesThroughTemporary) {
  ZRContainerFile::Writer w(kFields);
  w.setName("Bin");  // a file without parameters would not load back
  w.addItem(Cookie::generate());
  w.save(dir_.wfile("bin.sg"));
  EXPECT_EQ(w.database().get_filename(), dir_.wfile("bin.sg"));  // new file: written directly

  w.addItem(Cookie::generate());
  w.save(dir_.wfile("bin.sg"));
  EXPECT_EQ(w.database().get_filename(), dir_.wfile("bin.sg.tmp"));
  EXPECT_FALSE(testutil::pathExists(dir_.file("bin.sg.tmp")));  // moved into place
  EXPECT_EQ(ZRContainerFile::Reader(dir_.wfile("bin.sg"), false).getNumItems(), 2u);
}

TEST(ContainerCookie, FromFileNames) {
  LightweightString<wchar_t> sg(L"/bins/Selects.SG");
  Cookie plain(stripPathAndExt(sg), false);
  Cookie from_sg = ZRContainerFile::getCookieFromFilename(sg);
  EXPECT_EQ(from_sg, convertCookie(plain, 'M', 255));
  EXPECT_EQ(ZRContainerFile::getCookieFromFilename(L"clip.RAK"),
            convertCookie(Cookie(stripPathAndExt(L"clip.RAK"), false), 'B', 255));
  EXPECT_EQ(ZRContainerFile::getCookieFromFilename(L"x.txt"), Cookie(LightweightString<wchar_t>(L"x"), false));
  // The same name always gives the same cookie.
  EXPECT_EQ(ZRContainerFile::getCookieFromFilename(sg), from_sg);
  EXPECT_STREQ(ZRContainerFile::getNameParamKey(), "Name");
  EXPECT_STREQ(ZRContainerFile::getPermanentParamKey(), "Permanent");
}

}  // namespace
