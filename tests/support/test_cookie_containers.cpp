#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/CookieContainers.h"

namespace {

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

std::vector<Cookie> contents(const CookieSet& set) {
  std::vector<Cookie> out;
  for (int i = 0; i < set.size(); ++i) out.push_back(set[i]);
  return out;
}

TEST(Array, InternKeepsItemsSortedAndDistinctAndOwnsThem) {
  int deaths = 0;
  {
    Array a;
    struct Step {
      int value;
      bool added;
      unsigned index;
    };
    const Step steps[] = {{5, true, 0}, {2, true, 0},  {9, true, 2}, {5, false, 1},
                          {7, true, 2}, {2, false, 0}, {10, true, 4}};
    for (const Step& s : steps) {
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
  EXPECT_EQ(printed(a), "0, 4, 2, 1, 8");

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

TEST(CookieSet, HoldsDistinctCookiesInCompareOrder) {
  CookieSet set;
  EXPECT_EQ(set.size(), 0);
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
  set.purge();
  EXPECT_EQ(set.size(), 0);
  EXPECT_FALSE(set.contains(added[0]));
}

TEST(CookieSet, CopiesShareUntilOneChanges) {
  Cookie a = Cookie::generate(), b = Cookie::generate(), c = Cookie::generate();
  CookieSet first;
  first.add(a);
  first.add(b);

  CookieSet second = first;
  EXPECT_EQ(contents(second), contents(first));
  EXPECT_FALSE(second.add(a)) << "adding a present cookie changes nothing";
  EXPECT_TRUE(second.add(c));
  EXPECT_EQ(first.size(), 2);
  EXPECT_FALSE(first.contains(c)) << "a write to a copy must not reach the original";
  EXPECT_EQ(second.size(), 3);

  CookieSet third = first;
  third.unshare();
  third.add(c);
  first.purge();
  EXPECT_EQ(first.size(), 0);
  EXPECT_EQ(third.size(), 3) << "purging one copy leaves the others";
  EXPECT_EQ(second.size(), 3);
}

}  // namespace
