// Expression lists: printing (nested lists, operators, bound and unbound references),
// reversal, iteration and destruction of the whole rest of a list.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "expr/SExpr.h"
#include "expr/SExprIterator.h"
#include "expr/SExprOperator.h"
#include "expr/SExprRef.h"
#include "record/kesta.h"
#include "support/GrowString.h"

namespace {

Zr::Ptr<kesta> reelDatabase() {
  std::vector<DBFieldDesc> fields{{"Name", DBFieldTypes::kText},
                                  {"Scene", DBFieldTypes::kText},
                                  {"Take", DBFieldTypes::kText},
                                  {"Reel", DBFieldTypes::kText}};
  return Zr::Ptr<kesta>(new kesta(fields));
}

std::string print(SExprElt& element) {
  GrowString out;
  element.asString(out);
  return out.c_str();
}

// Counts destructions, so a test can see what a list destroys.
class CountedOperator : public SExprOperator {
 public:
  explicit CountedOperator(std::vector<int>& died, int id) : died_(died), id_(id) {}
  ~CountedOperator() override { died_.push_back(id_); }

 private:
  std::vector<int>& died_;
  int id_;
};

TEST(SExpr, PrintsElementsSeparatedBySingleSpaces) {
  Zr::Ptr<kesta> db = reelDatabase();
  struct Case {
    const char* what;
    SExpr* list;
    const char* printed;
  };
  const Case cases[] = {
      {"one cell, no space", new SExpr(new SExprRef(3, db.get())), "(Reel)"},
      // The operator's own trailing space and the separator both appear.
      {"reference, operator, reference",
       new SExpr(new SExprRef(3, db.get()), new SExpr(new SExprOperator(), new SExpr(new SExprRef(3, db.get())))),
       "(Reel op  Reel)"},
      {"unbound reference", new SExpr(new SExprRef(1, nullptr), new SExpr(new SExprRef(1, db.get()))),
       "(voidref Scene)"},
      {"nested list",
       new SExpr(new SExprRef(0, db.get()),
                 new SExpr(new SExpr(new SExprOperator(), new SExpr(new SExprRef(2, db.get()))))),
       "(Name (op  Take))"},
      {"reference past the fields", new SExpr(new SExprRef(9, db.get())), "()"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(print(*c.list), c.printed) << c.what;
    delete c.list;
  }
  SExprOperator op;
  EXPECT_EQ(print(op), "op ");
}

TEST(SExpr, ReverseTurnsTheChainRound) {
  Zr::Ptr<kesta> db = reelDatabase();
  SExpr* single = new SExpr(new SExprRef(0, db.get()));
  EXPECT_EQ(single->reverse(), single);
  EXPECT_EQ(single->next(), nullptr);
  delete single;

  SExpr* third = new SExpr(new SExprRef(2, db.get()));
  SExpr* second = new SExpr(new SExprRef(1, db.get()), third);
  SExpr* first = new SExpr(new SExprRef(0, db.get()), second);
  SExpr* reversed = first->reverse();
  EXPECT_EQ(reversed, third);
  EXPECT_EQ(third->next(), second);
  EXPECT_EQ(second->next(), first);
  EXPECT_EQ(first->next(), nullptr);
  EXPECT_EQ(print(*reversed), "(Take Scene Name)");
  EXPECT_EQ(reversed->reverse(), first);
  EXPECT_EQ(print(*first), "(Name Scene Take)");
  delete first;
}

TEST(SExprIterator, StepsThroughTheCellsThenStartsOver) {
  SExpr* last = new SExpr(new SExprOperator());
  SExpr* list = new SExpr(new SExprRef(0, nullptr), last);
  SExprIterator it(list);
  EXPECT_EQ(it.current(), nullptr);
  const std::vector<SExpr*> expected{list, last, nullptr, list, last, nullptr};
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ++it;
    EXPECT_EQ(it.current(), expected[i]) << "step " << i + 1;
  }
  SExprIterator empty(nullptr);
  EXPECT_EQ((++empty).current(), nullptr);
  delete list;
}

TEST(SExpr, DestroyingTheFirstCellDestroysTheRestInOrder) {
  std::vector<int> died;
  SExpr* list = nullptr;
  for (int id = 4; id >= 0; --id) list = new SExpr(new CountedOperator(died, id), list);
  SExpr* inner = new SExpr(new CountedOperator(died, 10), new SExpr(new CountedOperator(died, 11)));
  SExpr* outer = new SExpr(inner, list);
  delete outer;
  EXPECT_EQ(died, (std::vector<int>{10, 11, 0, 1, 2, 3, 4}));

  // A long list goes without exhausting the stack.
  SExpr* longList = nullptr;
  for (int i = 0; i < 200000; ++i) longList = new SExpr(new SExprOperator(), longList);
  delete longList;
}

}  // namespace
