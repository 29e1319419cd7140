// A view copied onto a private copy of its database owns that copy; views made from it (a tag
// subview chained on it, a plain copy beside it) stand on the same private database and must
// keep it alive after the view that made it has gone, in every order of release. The suite's
// sanitizer run turns a database released too early into a failure.

#include <gtest/gtest.h>

#include "view/KSTView.h"
#include "view/ViewProbe.h"

namespace {

using viewprobe::shown;

TEST(ViewPrivateDatabase, ViewsMadeFromACopyOutliveIt) {
  // Each case releases the three handles in another order; the last two also unchain the
  // subview first, so that it no longer holds the copy.
  const int orders[][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {2, 0, 1}, {2, 1, 0}};
  for (const auto& order : orders) {
    for (bool unchain : {false, true}) {
      Zr::Ptr<kesta> db = viewprobe::makeDatabase(5);
      KSTView all(new KSTViewRep(db.get()));
      all->displayAllRecords();
      KSTView handles[3];
      handles[0] = all.copyWithNewBaseView();
      ASSERT_TRUE(handles[0]);
      kesta* copied = handles[0]->database();
      ASSERT_NE(copied, db.get());
      handles[0]->set_tag(1, 1);
      handles[0]->set_tag(3, 1);
      handles[1] = KSTView(handles[0]->newTagSubview());
      handles[2] = handles[0].copy();
      if (unchain) handles[1]->baseView(nullptr);
      // The original database may go too: the copies do not depend on it.
      all = KSTView();
      db = nullptr;

      for (int step = 0; step < 3; ++step) {
        handles[order[step]] = KSTView();
        for (int other = 0; other < 3; ++other) {
          if (!handles[other]) continue;
          ASSERT_EQ(handles[other]->database(), copied);
          EXPECT_EQ(copied->get_num_records(), 5u);
          if (other == 2) {
            EXPECT_EQ(shown(*handles[other]), (std::vector<int>{0, 1, 2, 3, 4}));
          } else if (other == 1 && !unchain) {
            EXPECT_EQ(shown(*handles[other]), (std::vector<int>{1, 3}));
          }
        }
      }
    }
  }
}

}  // namespace
