// Cookies: text forms, name-based cookies, order; and the containers that hold them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "support/CookieContainers.h"

namespace {

const std::string kText = "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f";

std::string text_of(const Cookie& k, bool suffix) { return k.asString(suffix).c_str(); }

int sign(int v) { return (v > 0) - (v < 0); }

TEST(Cookie, NullCookieHasEmptyTextAndParsesFromZeros) {
  Cookie null_cookie;
  EXPECT_TRUE(null_cookie.isNull());
  EXPECT_EQ(text_of(null_cookie, true), "");
  for (bool strict : {true, false}) {
    for (const char* text : {"", " \t ", static_cast<const char*>(nullptr), "00000000-0000-0000-0000-000000000000"})
      EXPECT_TRUE(Cookie(text, strict).isNull()) << (text ? text : "null");
  }
  // A zero UUID with a kind is no longer the null cookie and keeps its text.
  Cookie kinded = convertCookie(null_cookie, 'M', 255);
  EXPECT_FALSE(kinded.isNull());
  EXPECT_EQ(text_of(kinded, false), "00000000-0000-0000-0000-000000000000.M255");
  EXPECT_EQ(Cookie(kinded.asString(false), true), kinded);
}

TEST(Cookie, TextFormsParseToTheirBytesKindAndQualifier) {
  const uint8_t bytes[16] = {0x4f, 0x3c, 0x2a, 0x10, 0x9b, 0x7e, 0x4d, 0x21,
                             0x8c, 0x55, 0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f};
  Cookie base(kText.c_str(), true);
  EXPECT_EQ(std::memcmp(base.uuid().bytes, bytes, 16), 0);
  EXPECT_EQ(text_of(base, false), kText);
  EXPECT_EQ(text_of(base, true), kText + ".00");
  const struct {
    const char* text;
    CookieType kind;
    unsigned char qualifier;
    const char* printed;  // with the suffix
  } cases[] = {
      {"4F3C2A10-9B7E-4D21-8C55-0A1B2C3D4E5F", 0, 0, ".00"},
      {"  4f3C2a10-9B7e-4d21-8c55-0A1b2c3d4E5f\t\n", 0, 0, ".00"},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.00", 0, 0, ".00"},
      {" 4F3C2A10-9B7E-4D21-8C55-0A1B2C3D4E5F.M255 ", 'M', 255, ".M255"},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.B0", 'B', 0, ".B0"},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.07", 0, 7, ".07"},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.m017", 'm', 17, ".m17"},
      {"4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.b42", 'b', 42, ".b42"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    for (bool strict : {true, false}) {
      Cookie k(c.text, strict);
      EXPECT_EQ(k, convertCookie(base, c.kind, c.qualifier));
      EXPECT_EQ(k.kind(), c.kind);
      EXPECT_EQ(k.qualifier(), c.qualifier);
      EXPECT_EQ(text_of(k, true), kText + c.printed);
      EXPECT_EQ(text_of(k, false), c.kind || c.qualifier ? kText + c.printed : kText);
    }
  }
}

TEST(Cookie, JunkIsNullWhenStrictAndNameBasedOtherwise) {
  const char* junk[] = {"hello",
                        "Reel 12",
                        "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5",    // one digit short
                        "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f0",  // one digit long
                        "4f3c2a10x9b7e-4d21-8c55-0a1b2c3d4e5f",   // dash misplaced
                        "4f3c2a1-09b7e-4d21-8c55-0a1b2c3d4e5f",   // groups shifted
                        "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5g",   // not hex
                        "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f M255"};
  std::vector<std::string> texts(std::begin(junk), std::end(junk));
  // Suffixes: a dot alone, a kind without qualifier, a qualifier too large, and stray bytes.
  for (const char* suffix : {".", ".M", ".M256", ".M2x", ".-1", ".M255x"}) texts.push_back(kText + suffix);
  std::vector<Cookie> named;
  for (const std::string& junk_text : texts) {
    const char* text = junk_text.c_str();
    SCOPED_TRACE(text);
    EXPECT_TRUE(Cookie(text, true).isNull());
    Cookie k(text, false);
    EXPECT_EQ(k.uuid().bytes[6] >> 4, 5) << "a SHA-1 name-based UUID carries version 5";
    EXPECT_EQ(k.kind(), 0);
    EXPECT_EQ(k.qualifier(), 0);
    EXPECT_EQ(Cookie(text, false), k) << "the same text must give the same cookie";
    EXPECT_EQ(Cookie(k.asString(false), true), k);  // its text is a real cookie
    for (const Cookie& before : named) EXPECT_NE(before.compare(k), 0);
    named.push_back(k);
  }
  // Surrounding blanks are not part of the name; anything else is.
  Cookie a("Reel 12", false);
  EXPECT_EQ(a, Cookie("  Reel 12\t", false));
  EXPECT_EQ(a.uuid().compare(Zr::UUID::fromName("Reel 12", 7)), 0);
  for (const char* other : {"Reel 13", "reel 12", "Reel  12"}) EXPECT_NE(a, Cookie(other, false)) << other;
}

TEST(Cookie, RandomCookiesRoundTripThroughTextAndOrderByBytesThenKindThenQualifier) {
  std::vector<Cookie> all;
  for (int round = 0; round < 12; ++round) {
    Cookie k = Cookie::generate();
    EXPECT_EQ(k.uuid().bytes[6] >> 4, 4) << "random UUIDs carry version 4";
    for (CookieType kind : {CookieType(0), CookieType('B'), CookieType('M'), CookieType('z')}) {
      for (unsigned char q : {0, 1, 9, 10, 99, 100, 255}) {
        Cookie c = convertCookie(k, kind, q);
        all.push_back(c);
        for (bool suffix : {false, true}) {
          std::string text = text_of(c, suffix);
          SCOPED_TRACE(text);
          EXPECT_EQ(text.size() > 36, suffix || kind != 0 || q != 0);
          EXPECT_EQ(Cookie(text.c_str(), true), c);
          EXPECT_EQ(Cookie(text.c_str(), false), c);
          EXPECT_EQ(Cookie(testutil::wide(text), true), c);
        }
      }
    }
  }
  // Two UUIDs that differ only in their last byte, the high bit included.
  Zr::UUID low, high;
  high.bytes[15] = 0x80;
  low.bytes[15] = 0x7f;
  all.push_back(Cookie(low, 'M', 255));
  all.push_back(Cookie(high, 0, 0));
  for (const Cookie& a : all) {
    for (std::size_t j = 0; j < all.size(); j += 5) {
      const Cookie& b = all[j];
      int ab = a.compare(b);
      EXPECT_EQ(sign(ab), -sign(b.compare(a)));
      // Lower-case hex text orders like the bytes it spells.
      int by_uuid = sign(std::strncmp(a.asString(true).c_str(), b.asString(true).c_str(), 36));
      int by_kind = sign(int(static_cast<unsigned char>(a.kind())) - int(static_cast<unsigned char>(b.kind())));
      int by_qualifier = sign(int(a.qualifier()) - int(b.qualifier()));
      EXPECT_EQ(sign(ab), by_uuid ? by_uuid : (by_kind ? by_kind : by_qualifier))
          << a.asString(true).c_str() << " vs " << b.asString(true).c_str();
    }
  }
  std::sort(all.begin(), all.end(), CookieLess());
  for (std::size_t i = 1; i < all.size(); ++i) EXPECT_LT(all[i - 1].compare(all[i]), 0);
}

// An Array item that counts its destructions, to check who owns what.
class Item : public ArrayRec {
 public:
  Item(int value, int& deaths) : value_(value), deaths_(deaths) {}
  ~Item() override { ++deaths_; }
  int compare(const ArrayRec& other) const override {
    int o = static_cast<const Item&>(other).value_;
    return value_ < o ? -1 : (value_ > o ? 1 : 0);
  }
  void printOn(GrowString& out) const override { out.append(std::to_string(value_).c_str()); }
  int value() const { return value_; }

 private:
  int value_;
  int& deaths_;
};

std::string printed(const Array& a) {
  GrowString out;
  a.printOn(out);
  return out.c_str();
}

TEST(Array, InternKeepsItemsSortedAndDistinctAndOwnsThem) {
  int deaths = 0;
  {
    Array a;
    const struct {
      int value;
      bool added;
      unsigned index;
    } steps[] = {{5, true, 0}, {2, true, 0}, {9, true, 2}, {5, false, 1}, {7, true, 2}, {2, false, 0}, {10, true, 4}};
    for (const auto& s : steps) {
      unsigned index = 99;
      EXPECT_EQ(a.intern(new Item(s.value, deaths), index), s.added) << s.value;
      EXPECT_EQ(index, s.index) << s.value;
    }
    EXPECT_EQ(printed(a), "2, 5, 7, 9, 10");
    EXPECT_EQ(deaths, 2) << "a refused duplicate is freed at once";
  }
  EXPECT_EQ(deaths, 2 + 5) << "the array frees what it holds";
}

TEST(Array, AppendInsertReplaceSortAndInit) {
  int deaths = 0;
  Array a;
  a.appendDatum(new Item(3, deaths));
  a.appendDatum(new Item(1, deaths));
  a.insertDatum(new Item(2, deaths), 1);
  a.insertDatum(new Item(8, deaths), 100);  // past the end: appended
  a.insertDatum(new Item(0, deaths), 0);
  EXPECT_EQ(printed(a), "0, 3, 2, 1, 8");
  a.replaceDatum(1, new Item(4, deaths));
  EXPECT_EQ(deaths, 1) << "the replaced item is freed";
  a.replaceDatum(5, new Item(6, deaths));
  EXPECT_EQ(deaths, 2) << "an item that replaces nothing is freed, not leaked";
  a.sort();
  EXPECT_EQ(printed(a), "0, 1, 2, 4, 8");
  ASSERT_NE(a.at(3), nullptr);
  EXPECT_EQ(static_cast<const Item*>(a.at(3))->value(), 4);
  EXPECT_EQ(a.at(5), nullptr);
  a.init();
  EXPECT_EQ(a.size(), 0u);
  EXPECT_EQ(deaths, 7);
  EXPECT_EQ(printed(a), "");
}

TEST(CookieSet, HoldsDistinctCookiesInCompareOrderAndCopiesShareUntilOneChanges) {
  CookieSet set;
  std::vector<Cookie> added;
  for (int i = 0; i < 30; ++i) {
    Cookie k = Cookie::generate();
    EXPECT_TRUE(set.add(k));
    EXPECT_TRUE(set.add(convertCookie(k, 'M', 255)));
    EXPECT_FALSE(set.add(k));
    added.push_back(k);
  }
  ASSERT_EQ(set.size(), 60);
  for (int i = 1; i < set.size(); ++i) EXPECT_LT(set[i - 1].compare(set[i]), 0);
  for (const Cookie& k : added) {
    EXPECT_TRUE(set.contains(k));
    EXPECT_TRUE(set.contains(convertCookie(k, 'M', 255)));
    EXPECT_FALSE(set.contains(convertCookie(k, 'B', 255)));
  }

  CookieSet copy = set;
  Cookie fresh = Cookie::generate();
  EXPECT_FALSE(copy.add(added[0])) << "adding a present cookie changes nothing";
  EXPECT_TRUE(copy.add(fresh));
  EXPECT_FALSE(set.contains(fresh)) << "a write to a copy must not reach the original";
  EXPECT_EQ(set.size(), 60);
  CookieSet third = set;
  third.unshare();
  third.add(fresh);
  set.purge();
  EXPECT_EQ(set.size(), 0);
  EXPECT_FALSE(set.contains(added[0]));
  EXPECT_EQ(third.size(), 61) << "purging one copy leaves the others";
  EXPECT_EQ(copy.size(), 61);
}

}  // namespace
