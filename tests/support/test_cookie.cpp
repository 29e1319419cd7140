#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "support/Cookie.h"

namespace {

std::string text_of(const Cookie& k, bool suffix) { return std::string(k.asString(suffix).c_str()); }

// The 8-4-4-4-12 shape in lower-case hex.
bool is_canonical_uuid_text(const std::string& s) {
  if (s.size() < 36) return false;
  for (std::size_t i = 0; i < 36; ++i) {
    bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    char c = s[i];
    if (dash ? c != '-' : !((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  }
  return true;
}

int sign(int v) { return (v > 0) - (v < 0); }

TEST(Cookie, NullCookieHasEmptyTextAndParsesFromZeros) {
  Cookie null_cookie;
  EXPECT_TRUE(null_cookie.isNull());
  EXPECT_EQ(text_of(null_cookie, false), "");
  EXPECT_EQ(text_of(null_cookie, true), "");
  for (bool strict : {true, false}) {
    EXPECT_TRUE(Cookie("", strict).isNull());
    EXPECT_TRUE(Cookie(" \t ", strict).isNull());
    EXPECT_TRUE(Cookie(static_cast<const char*>(nullptr), strict).isNull());
    EXPECT_TRUE(Cookie("00000000-0000-0000-0000-000000000000", strict).isNull());
  }
  // A zero UUID with a kind is no longer the null cookie and keeps its text.
  Cookie kinded = convertCookie(null_cookie, 'M', 255);
  EXPECT_FALSE(kinded.isNull());
  EXPECT_EQ(text_of(kinded, false), "00000000-0000-0000-0000-000000000000.M255");
  EXPECT_EQ(Cookie(kinded.asString(false), true), kinded);
}

TEST(Cookie, KnownTextParsesToItsBytesAndPrintsBack) {
  const char* text = "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f";
  const uint8_t bytes[16] = {0x4f, 0x3c, 0x2a, 0x10, 0x9b, 0x7e, 0x4d, 0x21,
                             0x8c, 0x55, 0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
  Cookie k(text, true);
  EXPECT_EQ(std::memcmp(k.uuid().bytes, bytes, 16), 0);
  EXPECT_EQ(k.kind(), 0);
  EXPECT_EQ(k.qualifier(), 0);
  EXPECT_EQ(text_of(k, false), text);
  EXPECT_EQ(text_of(k, true), std::string(text) + ".00");

  Cookie m = convertCookie(k, 'M', 255);
  EXPECT_EQ(text_of(m, false), std::string(text) + ".M255");
  EXPECT_EQ(text_of(m, true), std::string(text) + ".M255");
  EXPECT_EQ(text_of(convertCookie(k, 0, 7), false), std::string(text) + ".07");
  EXPECT_EQ(text_of(convertCookie(k, 'b', 42), false), std::string(text) + ".b42");
  EXPECT_EQ(m.uuid().compare(k.uuid()), 0);
}

TEST(Cookie, AcceptsUpperCaseHexBlanksAndBothSuffixForms) {
  Cookie base("4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f", true);
  struct Case {
    const char* text;
    CookieType kind;
    unsigned char qualifier;
  };
  const Case cases[] = {
      {"4F3C2A10-9B7E-4D21-8C55-0A1B2C3D4E5F", 0, 0},         {"  4f3C2a10-9B7e-4d21-8c55-0A1b2c3d4E5f\t\n", 0, 0},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.00", 0, 0},      {" 4F3C2A10-9B7E-4D21-8C55-0A1B2C3D4E5F.M255 ", 'M', 255},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.B0", 'B', 0},    {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.07", 0, 7},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.m017", 'm', 17},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    for (bool strict : {true, false}) {
      Cookie k(c.text, strict);
      EXPECT_EQ(k, convertCookie(base, c.kind, c.qualifier));
      EXPECT_EQ(k.kind(), c.kind);
      EXPECT_EQ(k.qualifier(), c.qualifier);
    }
  }
}

TEST(Cookie, JunkIsNullWhenStrictAndNameBasedOtherwise) {
  const char* junk[] = {
      "hello",
      "Reel 12",
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5",        // one digit short
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f0",      // one digit long
      "4f3c2a10x9b7e-4d21-8c55-0a1b2c3d4e5f",       // dash misplaced
      "4f3c2a1-09b7e-4d21-8c55-0a1b2c3d4e5f",       // groups shifted
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5g",       // not hex
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.",      // dot without suffix
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M",     // kind without qualifier
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M256",  // qualifier too large
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M2x",
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.-1",
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f M255",
      "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M255x",
  };
  std::vector<Cookie> named;
  for (const char* text : junk) {
    SCOPED_TRACE(text);
    EXPECT_TRUE(Cookie(text, true).isNull());
    Cookie k(text, false);
    EXPECT_FALSE(k.isNull());
    EXPECT_EQ(k.uuid().bytes[6] >> 4, 5) << "a SHA-1 name-based UUID carries version 5";
    EXPECT_EQ(k.kind(), 0);
    EXPECT_EQ(k.qualifier(), 0);
    EXPECT_EQ(Cookie(text, false), k) << "the same text must give the same cookie";
    // Its text is a real cookie, which reads back strictly.
    EXPECT_EQ(Cookie(k.asString(false), true), k);
    named.push_back(k);
  }
  for (std::size_t i = 0; i < named.size(); ++i) {
    for (std::size_t j = i + 1; j < named.size(); ++j) EXPECT_NE(named[i].compare(named[j]), 0) << i << " " << j;
  }
}

TEST(Cookie, NameBasedCookiesAreStableDistinctAndIgnoreSurroundingBlanks) {
  Cookie a("Reel 12", false);
  EXPECT_EQ(a, Cookie("  Reel 12\t", false));
  EXPECT_EQ(a.uuid().compare(Zr::UUID::fromName("Reel 12", 7)), 0);
  for (const char* other : {"Reel 13", "reel 12", "Reel  12"}) EXPECT_NE(a, Cookie(other, false)) << other;
}

TEST(Cookie, RandomAndConvertedCookiesRoundTripThroughText) {
  const CookieType kinds[] = {0, 'M', 'B', 'z'};
  const unsigned char qualifiers[] = {0, 1, 9, 10, 99, 100, 255};
  for (int round = 0; round < 20; ++round) {
    Cookie k = Cookie::generate();
    ASSERT_FALSE(k.isNull());
    EXPECT_EQ(k.uuid().bytes[6] >> 4, 4) << "random UUIDs carry version 4";
    for (CookieType kind : kinds) {
      for (unsigned char q : qualifiers) {
        Cookie c = convertCookie(k, kind, q);
        for (bool suffix : {false, true}) {
          std::string text = text_of(c, suffix);
          SCOPED_TRACE(text);
          EXPECT_TRUE(is_canonical_uuid_text(text));
          bool has_suffix = text.size() > 36;
          EXPECT_EQ(has_suffix, suffix || kind != 0 || q != 0);
          EXPECT_EQ(Cookie(text.c_str(), true), c);
          EXPECT_EQ(Cookie(text.c_str(), false), c);
          EXPECT_EQ(Cookie(testutil::wide(text), true), c);
        }
      }
    }
  }
}

TEST(Cookie, CompareIsATotalOrderByBytesThenKindThenQualifier) {
  std::vector<Cookie> all;
  for (int i = 0; i < 12; ++i) {
    Cookie k = Cookie::generate();
    for (CookieType kind : {CookieType(0), CookieType('B'), CookieType('M')}) {
      for (unsigned char q : {0, 5, 255}) all.push_back(convertCookie(k, kind, q));
    }
  }
  // Two UUIDs that differ only in their last byte, the high bit included.
  Zr::UUID low, high;
  high.bytes[15] = 0x80;
  low.bytes[15] = 0x7f;
  all.push_back(Cookie(low, 'M', 255));
  all.push_back(Cookie(high, 0, 0));

  for (const Cookie& a : all) {
    EXPECT_EQ(a.compare(a), 0);
    for (const Cookie& b : all) {
      int ab = a.compare(b);
      EXPECT_EQ(sign(ab), -sign(b.compare(a)));
      // Lower-case hex text orders like the bytes it spells.
      int by_uuid = sign(std::strncmp(a.asString(true).c_str(), b.asString(true).c_str(), 36));
      int by_kind = sign(int(static_cast<unsigned char>(a.kind())) - int(static_cast<unsigned char>(b.kind())));
      int by_qualifier = sign(int(a.qualifier()) - int(b.qualifier()));
      int expected = by_uuid ? by_uuid : (by_kind ? by_kind : by_qualifier);
      EXPECT_EQ(sign(ab), expected) << a.asString(true).c_str() << " vs " << b.asString(true).c_str();
    }
  }
  std::sort(all.begin(), all.end(), CookieLess());
  for (std::size_t i = 1; i < all.size(); ++i) EXPECT_LT(all[i - 1].compare(all[i]), 0);
  for (std::size_t i = 2; i < all.size(); ++i) EXPECT_LT(all[i - 2].compare(all[i]), 0);
}

}  // namespace
