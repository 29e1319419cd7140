// Randomised check of views against the reference model (ViewModel.h): small databases with
// one to three views, chained or not, put through random sequences of display, tag, removal,
// deletion, insertion and re-chaining; after every step both sides must agree on every row,
// tag, capacity and record shown, and on every message every listener heard, in order.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <sstream>

#include "view/ViewModel.h"
#include "view/ViewProbe.h"

namespace {

using viewmodel::World;
using viewprobe::Probe;

class Harness {
 public:
  Harness(int rows, int views, std::mt19937& rng) : model_(rows), rng_(rng) {
    db_ = viewprobe::makeDatabase(rows);
    next_id_ = rows;
    probes_.push_back(std::make_unique<Probe>(*db_, viewmodel::kDatabase, log_));
    model_.addProbes(viewmodel::kDatabase);
    for (int v = 0; v < views; ++v) {
      KSTViewRep* view = new KSTViewRep(db_.get());
      view->addUse();
      views_.push_back(view);
      model_.addView();
      probes_.push_back(std::make_unique<Probe>(*view, v, log_));
      const int base = v > 0 ? pick(-1, v - 1) : -1;
      if (base >= 0) {
        view->baseView(views_[static_cast<std::size_t>(base)]);
        model_.chain(v, base);
      }
      view->displayAllRecords();
      model_.displayAll(v);
    }
  }

  ~Harness() {
    probes_.clear();
    // Views chain only on views made before them: release the later ones first.
    for (auto it = views_.rbegin(); it != views_.rend(); ++it) (*it)->releaseUse();
  }

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  // One random operation on both sides; answers its description.
  std::string step() {
    const int v = pick(0, static_cast<int>(views_.size()) - 1);
    KSTViewRep& view = *views_[static_cast<std::size_t>(v)];
    const int rows = model_.views[static_cast<std::size_t>(v)].count;
    const int source = model_.sourceCount(v);
    std::ostringstream what;
    what << "v" << v << ".";
    switch (pick(0, 19)) {
      case 0: {
        view.displayAllRecords();
        model_.displayAll(v);
        what << "displayAllRecords()";
        break;
      }
      case 1: {
        const int first = pick(-2, source + 2), count = pick(0, 4), at = pick(-2, rows + 2);
        view.displayRecordsAt(first, count, at);
        model_.displayRecordsAt(v, first, count, at);
        what << "displayRecordsAt(" << first << ", " << count << ", " << at << ")";
        break;
      }
      case 2: {
        const int row = pick(-1, rows), count = pick(-1, rows + 1);
        view.remove(row, count);
        model_.remove(v, row, count);
        what << "remove(" << row << ", " << count << ")";
        break;
      }
      case 3:
      case 4: {
        for (int i = 0, n = pick(1, 4); i < n; ++i) {
          const int row = pick(-1, rows), on = pick(0, 2);
          view.set_tag(static_cast<unsigned>(row), on);
          model_.setTag(v, row, on != 0);
          what << "set_tag(" << row << ", " << on << ") ";
        }
        break;
      }
      case 5: {
        const int row = pick(-1, rows);
        view.invert_tag(static_cast<unsigned>(row));
        model_.setTag(v, row, !model_.tag(v, row));
        what << "invert_tag(" << row << ")";
        break;
      }
      case 6: {
        if (pick(0, 1)) {
          const bool on = pick(0, 1);
          view.tagAll(on);
          model_.tagAll(v, on);
          what << "tagAll(" << on << ")";
        } else {
          view.invertAllTags();
          model_.invertAll(v);
          what << "invertAllTags()";
        }
        break;
      }
      case 7:
      case 8: {
        const int row = pick(-1, rows), count = pick(0, 4);
        view.deleteRecords(row, count);
        model_.deleteRecords(v, row, count);
        what << "deleteRecords(" << row << ", " << count << ")";
        break;
      }
      case 9:
      case 10: {
        view.deleteTagged();
        model_.runs(v, true, true);
        what << "deleteTagged()";
        break;
      }
      case 11: {
        if (pick(0, 1)) {
          view.removeTagged();
          model_.runs(v, true, false);
          what << "removeTagged()";
        } else {
          view.set_show_tags_only(1);
          model_.runs(v, false, false);
          what << "removeNonTagged()";
        }
        break;
      }
      case 12: {
        const int row = pick(-1, rows), count = pick(0, 4);
        view.removeRecordsFromBaseView(row, count);
        model_.removeFromBase(v, row, count);
        what << "removeRecordsFromBaseView(" << row << ", " << count << ")";
        break;
      }
      case 13: {
        const int first = pick(0, static_cast<int>(model_.records.size())), count = pick(0, 4);
        db_->delete_records(static_cast<unsigned>(first), static_cast<unsigned>(count));
        model_.dbDelete(static_cast<uint32_t>(first), static_cast<uint32_t>(count));
        what.str("");
        what << "db.delete_records(" << first << ", " << count << ")";
        break;
      }
      case 14: {
        what.str("");
        what << "db.set_tag";
        for (int i = 0, n = pick(1, 5); i < n; ++i) {
          const int row = pick(0, static_cast<int>(model_.records.size())), value = pick(0, 2);
          db_->set_tag(static_cast<unsigned>(row), value);
          model_.dbSetTag(row, value);
          what << " " << row << "=" << value;
        }
        db_->delete_tagged_records();
        model_.dbDeleteTagged();
        what << "; db.delete_tagged_records()";
        break;
      }
      case 15: {
        const int at = pick(-1, rows + 1), count = pick(0, 3);
        if (pick(0, 3) == 0) {
          view.add_records(count);
          model_.insertBlank(v, rows, count);
          what << "add_records(" << count << ")";
        } else {
          view.insertBlankRecords(at, count);
          model_.insertBlank(v, at, count);
          what << "insertBlankRecords(" << at << ", " << count << ")";
        }
        break;
      }
      case 16: {
        const int at = pick(-1, rows + 1);
        view.displayTaggedRecordsAt(at);
        model_.displayTagged(v, at);
        what << "displayTaggedRecordsAt(" << at << ")";
        break;
      }
      case 17: {
        switch (pick(0, 2)) {
          case 0: {
            const int row = pick(-1, source + 1);
            view.append(static_cast<unsigned>(row));
            model_.append(v, static_cast<uint32_t>(row));
            what << "append(" << row << ")";
            break;
          }
          case 1:
            view.buildIndex();
            model_.buildIndex(v);
            what << "buildIndex()";
            break;
          default:
            view.clear();
            model_.clear(v);
            what << "clear()";
        }
        break;
      }
      case 18: {
        const int base = pick(-1, v - 1);
        view.baseView(base >= 0 ? views_[static_cast<std::size_t>(base)] : nullptr);
        model_.chain(v, base);
        what << "baseView(" << base << ")";
        break;
      }
      default: {
        const int row = pick(-1, rows), count = pick(0, 3);
        view.delete_records(static_cast<unsigned>(row), static_cast<unsigned>(count));
        model_.deleteRecords(v, row, count);
        what << "delete_records(" << row << ", " << count << ")";
      }
    }
    next_id_ = viewprobe::label(*db_, next_id_);
    model_.label();
    return what.str();
  }

  // Empty when both sides agree; otherwise the first difference.
  std::string compare() {
    std::ostringstream diff;
    if (db_->get_num_records() != model_.records.size()) {
      diff << "database has " << db_->get_num_records() << " rows, model " << model_.records.size();
      return diff.str();
    }
    for (unsigned r = 0; r < db_->get_num_records(); ++r) {
      const int id = viewprobe::identity(db_->get_record(r));
      if (id != model_.records[r]) return "database row " + std::to_string(r) + " shows " + std::to_string(id);
      if (id != viewmodel::kNoRecord && db_->get_tag(r) != model_.tags[r])
        return "database tag of row " + std::to_string(r);
    }
    for (std::size_t v = 0; v < views_.size(); ++v) {
      KSTViewRep& view = *views_[v];
      const World::View& expected = model_.views[v];
      const std::string name = "view " + std::to_string(v) + ": ";
      if (static_cast<int>(view.get_num_records()) != expected.count) {
        diff << name << view.get_num_records() << " rows, model " << expected.count;
        return diff.str();
      }
      if (view.capacity() != static_cast<int>(expected.slots.size())) {
        diff << name << "capacity " << view.capacity() << ", model " << expected.slots.size();
        return diff.str();
      }
      for (int i = 0; i < expected.count; ++i) {
        const viewmodel::Slot& slot = expected.slots[static_cast<std::size_t>(i)];
        if (view.sourceRow(i) != slot.row || view.get_tag(static_cast<unsigned>(i)) != slot.tag ||
            viewprobe::identity(view.get_record(static_cast<unsigned>(i))) !=
                model_.rowRecord(static_cast<int>(v), i)) {
          diff << name << "row " << i << " is " << view.sourceRow(i) << ":" << view.get_tag(static_cast<unsigned>(i))
               << " showing " << viewprobe::identity(view.get_record(static_cast<unsigned>(i))) << ", model "
               << slot.row << ":" << int(slot.tag) << " showing " << model_.rowRecord(static_cast<int>(v), i);
          return diff.str();
        }
      }
      std::string why;
      if (!view.checkInvariants(&why)) return name + why;
    }
    if (log_ != model_.log) {
      std::size_t i = 0;
      while (i < log_.size() && i < model_.log.size() && log_[i] == model_.log[i]) ++i;
      diff << "message " << i << ": heard \"" << (i < log_.size() ? log_[i] : "<nothing>") << "\", model \""
           << (i < model_.log.size() ? model_.log[i] : "<nothing>") << "\"";
      return diff.str();
    }
    return {};
  }

  std::size_t messages() const { return log_.size(); }

 private:
  World model_;
  std::mt19937& rng_;
  Zr::Ptr<kesta> db_;
  std::vector<KSTViewRep*> views_;
  std::vector<std::unique_ptr<Probe>> probes_;
  std::vector<std::string> log_;
  int next_id_ = 0;
};

TEST(ViewModelCheck, RandomSequencesAgreeWithTheModel) {
  constexpr int kSequences = 200;
  constexpr int kSteps = 200;
  std::size_t heard = 0;
  for (int seed = 1; seed <= kSequences; ++seed) {
    std::mt19937 rng(static_cast<unsigned>(seed));
    const int rows = std::uniform_int_distribution<int>(0, 30)(rng);
    const int views = std::uniform_int_distribution<int>(1, 3)(rng);
    Harness harness(rows, views, rng);
    std::string trail;
    std::string diff = harness.compare();
    ASSERT_EQ(diff, "") << "seed " << seed << " after construction";
    for (int step = 0; step < kSteps; ++step) {
      const std::string what = harness.step();
      trail += "  " + what + "\n";
      diff = harness.compare();
      ASSERT_EQ(diff, "") << "seed " << seed << ", step " << step << " (" << rows << " rows, " << views
                          << " views), operations:\n"
                          << trail;
    }
    heard += harness.messages();
  }
  // The sequences must exercise the protocol, not just agree on empty views.
  EXPECT_GT(heard, 10000u);
}

}  // namespace
