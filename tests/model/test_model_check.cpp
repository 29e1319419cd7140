// Random sequences of database operations (insert, add, delete, tags, show-tags-only, names,
// sort, save and reload) mixed with view operations (display, tags, removal, deletion through
// the chain, insertion, sort, chaining, copies, new and dropped views), run on the library and
// on the reference model (view/ViewModel.h). After every step both must agree on every record,
// visible row, live view (rows, flags, capacity, uses) and message heard, in order, and the
// library's invariant checks must hold. Sorting is not stable: a sort must be a reordering the
// model's comparison accepts, which the model then takes. Half the sequences run on a plain
// database, which takes its own shortcuts, the other half on a derived one, whose overrides the
// library must call. A failure prints the seed and the operations; add the seed to
// kRegressionSeeds to keep it.

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <memory>
#include <random>
#include <sstream>
#include <string_view>

#include "common/TestUtil.h"
#include "model/SortRules.h"
#include "record/KestaDebugPrivate.h"
#include "view/KSTView.h"
#include "view/ViewModel.h"
#include "view/ViewProbe.h"

namespace {

using sortrules::compareRecords;
using sortrules::Keys;
using sortrules::Values;
using viewmodel::kNoRecord;
using viewmodel::Slot;
using viewmodel::World;
using viewprobe::Probe;

constexpr int kMaxHeldViews = 5;
constexpr int kMaxRows = 60;

// Leading blanks and case variants exercise the comparator's rules; "" sorts last.
const char* const kNames[] = {"", "a", "A", "b", "B10", "b9", "a10", "a9", "  c", " b", "c d", "Z"};

// A database of a class of its own: the library then goes through its virtual calls.
class DerivedDatabase : public kesta {
 public:
  using kesta::kesta;
};

Zr::Ptr<kesta> newDatabase(bool derived, const std::vector<DBFieldDesc>& fields) {
  return derived ? Zr::Ptr<kesta>(new DerivedDatabase(fields)) : Zr::Ptr<kesta>(new kesta(fields));
}

Zr::Ptr<kesta> loadDatabase(bool derived, const LightweightString<wchar_t>& file) {
  return derived ? Zr::Ptr<kesta>(new DerivedDatabase(file, INT_MAX, true))
                 : Zr::Ptr<kesta>(new kesta(file, INT_MAX, true));
}

std::vector<DBFieldDesc> modelFields() {
  return {{"Id", DBFieldTypes::kText}, {"Name", DBFieldTypes::kText}, {"Tag", DBFieldTypes::kText}};
}

std::string trimmed(const std::string& s) {
  auto space = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  std::size_t b = 0, e = s.size();
  while (b < e && space(s[b])) ++b;
  while (e > b && space(s[e - 1])) --e;
  return s.substr(b, e - b);
}

class Harness {
 public:
  Harness(int rows, int views, bool derived, std::mt19937& rng) : model_(rows), rng_(rng), derived_(derived) {
    db_ = newDatabase(derived_, modelFields());
    db_->set_param_val("Mode", "model");  // a database without parameters does not load back
    db_->set_filename(dir_.wfile("model.kst"));
    db_->add_records(rows);
    for (int i = 0; i < rows; ++i) db_->set_field(static_cast<unsigned>(i), 0u, std::to_string(i).c_str());
    next_id_ = rows;
    attachDatabaseProbe();
    for (int v = 0; v < views; ++v) newView();
  }

  ~Harness() { releaseViews(); }

  int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }

  // One random operation on both sides; answers its description, or an empty text when the
  // operation's own result disagreed (then `failure_` says how).
  std::string step() {
    std::ostringstream what;
    if (heldViews().empty() && pick(0, 3) == 0) {
      newView();
      what << "new view " << views_.size() - 1 << " on " << model_.views.back().base;
    } else if (heldViews().empty() || pick(0, 99) < 45) {
      databaseStep(what);
    } else {
      viewStep(what);
    }
    next_id_ = viewprobe::label(*db_, next_id_);
    model_.label();
    return what.str();
  }

  // Empty when both sides agree; otherwise the first difference.
  std::string compare() {
    if (!failure_.empty()) return failure_;
    const RecordList& all = KestaDebug::records(*db_);
    if (differs(all.size(), model_.records.size(), "database entries")) return failure_;
    for (std::size_t r = 0; r < all.size(); ++r) {
      const int id = viewprobe::identity(all[r]);
      if (differs(id, model_.records[r], "database row", r)) return failure_;
      if (id != kNoRecord && (differs(std::string_view(all[r]->get_field(1)), model_.names[r], "name of row", r) ||
                              differs(std::string_view(all[r]->get_field(2)), model_.tag_texts[r], "Tag of row", r) ||
                              differs(int(all[r]->get_tag()), model_.tags[r], "tag of row", r)))
        return failure_;
    }
    if (differs(db_->get_show_tags_only() != 0, model_.show_tags_only, "show-tags-only") ||
        differs(int(db_->get_num_records()), model_.visibleCount(), "visible rows") ||
        differs(db_->get_num_tags(), model_.dbNumTags(), "tag count"))
      return failure_;
    for (int row = 0; row < model_.visibleCount(); ++row) {
      if (differs(viewprobe::identity(db_->get_record(unsigned(row))), model_.visibleRecord(row), "visible row", row))
        return failure_;
    }
    std::vector<const KSTViewRep*> live;
    for (std::size_t v = 0; v < views_.size(); ++v) {
      const World::View& expected = model_.views[v];
      if (!expected.alive) continue;
      KSTViewRep& view = *views_[v];
      live.push_back(&view);
      if (differs(view.useCount(), expected.uses, "uses of view", v) ||
          differs(int(view.get_num_records()), expected.count, "rows of view", v) ||
          differs(view.capacity(), int(expected.slots.size()), "capacity of view", v))
        return failure_;
      for (int i = 0; i < expected.count; ++i) {
        const Slot& slot = expected.slots[std::size_t(i)];
        if (differs(view.sourceRow(i), slot.row, "view", v, "row", i) ||
            differs(view.get_tag(unsigned(i)), int(slot.tag), "view", v, "tag", i) ||
            differs(viewprobe::identity(view.get_record(unsigned(i))), model_.rowRecord(int(v), i), "view", v,
                    "shows at", i))
          return failure_;
      }
    }
    std::string why;
    if (!KestaDebug::checkWithViews(*db_, live, &why)) return why;
    std::size_t i = 0;
    while (i < log_.size() && i < model_.log.size() && log_[i] == model_.log[i]) ++i;
    if (i < log_.size() || i < model_.log.size()) {
      differs(i < log_.size() ? log_[i] : "<nothing>", i < model_.log.size() ? model_.log[i] : "<nothing>", "message",
              i);
    }
    return failure_;
  }

  std::size_t messages() const { return heard_ + log_.size(); }
  int sorts() const { return sorts_; }
  int reloads() const { return reloads_; }

 private:
  template <class... Args>
  static void say(std::ostringstream& what, const char* name, const Args&... args) {
    [[maybe_unused]] const char* separator = "";
    what << name << "(";
    ((what << separator << args, separator = ", "), ...);
    what << ") ";
  }

  // Notes the first difference found, in the words of the places given.
  template <class A, class B, class... Where>
  bool differs(const A& real, const B& model, const Where&... where) {
    if (real == model) return false;
    std::ostringstream text;
    ((text << where << ' '), ...);
    text << "is \"" << real << "\", model \"" << model << "\"";
    failure_ = text.str();
    return true;
  }

  void attachDatabaseProbe() {
    probes_.push_back(std::make_unique<Probe>(*db_, viewmodel::kDatabase, log_));
    model_.addProbes(viewmodel::kDatabase);
  }

  // A new view held by the test, sometimes chained on a held one, showing all its source.
  void newView() {
    const std::vector<int> held = heldViews();
    KSTViewRep* view = new KSTViewRep(db_.get());
    view->addUse();
    views_.push_back(view);
    held_.push_back(true);
    const int v = model_.addView();
    probes_.push_back(std::make_unique<Probe>(*view, v, log_));
    if (!held.empty() && pick(0, 1)) {
      const int base = held[static_cast<std::size_t>(pick(0, static_cast<int>(held.size()) - 1))];
      view->baseView(views_[base]);
      model_.chain(v, base);
    }
    view->displayAllRecords();
    model_.displayAll(v);
  }

  // Takes a view made by the library (use count 0) into the test's hands.
  void adopt(KSTViewRep* view, int model_view) {
    view->addUse();
    views_.push_back(view);
    held_.push_back(true);
    probes_.push_back(std::make_unique<Probe>(*view, model_view, log_));
  }

  std::vector<int> heldViews() const {
    std::vector<int> out;
    for (std::size_t v = 0; v < held_.size(); ++v) {
      if (held_[v]) out.push_back(static_cast<int>(v));
    }
    return out;
  }

  void drop(int v) {
    held_[v] = false;
    views_[v]->releaseUse();
    model_.release(v);
  }

  // Later views chain only on earlier ones, so releasing from the back never leaves a view
  // on a dead base.
  void releaseViews() {
    for (int v = static_cast<int>(views_.size()) - 1; v >= 0; --v) {
      if (held_[v]) drop(v);
    }
  }

  Values valuesAt(int full_row) const {
    const std::size_t r = static_cast<std::size_t>(full_row);
    if (full_row < 0 || model_.records[r] == kNoRecord) return {};
    return {std::to_string(model_.records[r]), model_.names[r], model_.tag_texts[r]};
  }
  Values valuesOf(int id) const { return valuesAt(model_.rowOf(id)); }

  // The keys the next sortPrepare puts in place: nine at most, cut at the first out of range.
  Keys keys(int direction, int case_flag) const {
    Keys k;
    const std::size_t n = std::min<std::size_t>(model_.sort_fields.size(), 9);
    for (std::size_t i = 0; i < n && model_.sort_fields[i] < 3; ++i) k.fields.push_back(model_.sort_fields[i]);
    k.case_insensitive = case_flag != 0;
    k.descending = direction < 0;
    return k;
  }

  void setSortFields(std::ostringstream& what) {
    if (pick(0, 2) == 0) {
      const int field = pick(-1, 3);
      db_->set_sortfield(field);
      model_.sort_fields = {static_cast<uint16_t>(field)};
      what << "set_sortfield(" << field << "); ";
      return;
    }
    int list[10];
    const int n = pick(0, 4);
    model_.sort_fields.clear();
    what << "set_sortfields({";
    for (int i = 0; i < n; ++i) {
      list[i] = pick(0, 3);
      model_.sort_fields.push_back(static_cast<uint16_t>(list[i]));
      what << list[i] << ", ";
    }
    list[n] = -1;
    what << "-1}); ";
    db_->set_sortfields(list);
  }

  void sortDatabase(std::ostringstream& what) {
    if (pick(0, 1)) setSortFields(what);
    const int direction = pick(0, 1) ? 1 : -1, case_flag = pick(0, 1);
    db_->sort(direction, case_flag);
    what << "sort(" << direction << ", " << case_flag << ")";
    ++sorts_;

    std::vector<int> got;
    const RecordList& all = KestaDebug::records(*db_);
    for (std::size_t r = 0; r < all.size(); ++r) got.push_back(viewprobe::identity(all[r]));
    std::vector<int> a = got, b = model_.records;
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    if (a != b) {
      failure_ = "the sort lost or gained records";
      return;
    }
    // The model takes the order found, which must be one the comparison accepts.
    model_.reorder(got);
    if (model_.show_tags_only) model_.dbIndexTags();
    const Keys k = keys(direction, case_flag);
    for (int i = 1; i < static_cast<int>(got.size()); ++i) {
      if (compareRecords(valuesAt(i), valuesAt(i - 1), k) < 0) {
        failure_ = "database rows " + std::to_string(i - 1) + " and " + std::to_string(i) + " are out of order";
        return;
      }
    }
  }

  void save(std::ostringstream& what) {
    const int written = db_->save_text();
    model_.dbSave();
    int expected = 0;
    for (int id : model_.records) expected += id != kNoRecord;
    what << "save_text()";
    if (written != expected) failure_ = "save_text answered " + std::to_string(written);
  }

  // Saves, loads the file into a new database that must hold what was saved, and carries on
  // with it: the old views go, new ones come.
  void reload(std::ostringstream& what) {
    save(what);
    what << "; reload";
    ++reloads_;
    Zr::Ptr<kesta> back = loadDatabase(derived_, dir_.wfile("model.kst"));
    std::vector<int> ids;
    std::vector<std::string> names, texts;
    for (std::size_t r = 0; r < model_.records.size(); ++r) {
      if (model_.records[r] == kNoRecord) continue;
      ids.push_back(model_.records[r]);
      names.push_back(trimmed(model_.names[r]));
      texts.push_back(model_.tag_texts[r]);
    }
    if (back->get_valid() != 1 || back->get_num_fields() != 3 || back->get_num_records() != ids.size()) {
      failure_ = "the reloaded database differs in shape";
      return;
    }
    releaseViews();
    heard_ += log_.size();
    log_.clear();
    probes_.clear();
    views_.clear();
    held_.clear();
    db_ = back;
    model_.restart(ids, names, texts);
    attachDatabaseProbe();
    for (int v = 0, n = pick(1, 3); v < n; ++v) newView();
  }

  void databaseStep(std::ostringstream& what) {
    const int size = static_cast<int>(model_.records.size());
    const int visible = model_.visibleCount();
    what << "db.";
    switch (pick(0, 15)) {
      case 0:
      case 1: {
        const int at = pick(0, size + 1), count = pick(0, 3);
        if (size + count > kMaxRows) break;
        db_->insert_records(unsigned(at), unsigned(count));
        model_.dbInsert(uint32_t(at), uint32_t(count));
        say(what, "insert_records", at, count);
        break;
      }
      case 2: {
        const int count = pick(-1, 4);
        if (size + count > kMaxRows) break;
        say(what, "add_records", count);
        differs(db_->add_records(count), model_.dbAdd(count), "add_records answer");
        break;
      }
      case 3:
      case 4: {
        const int first = pick(0, size), count = pick(0, 4);
        db_->delete_records(unsigned(first), unsigned(count));
        model_.dbDelete(uint32_t(first), uint32_t(count));
        say(what, "delete_records", first, count);
        break;
      }
      case 5:
      case 6:
        for (int i = 0, n = pick(1, 4); i < n; ++i) {
          const int row = pick(-1, visible + 1), value = pick(0, 2);
          db_->set_tag(unsigned(row), value);
          model_.dbSetTag(uint32_t(row), value);
          say(what, "set_tag", row, value);
        }
        break;
      case 7: {
        const int row = pick(-1, visible + 1);
        db_->invert_tag(unsigned(row));
        model_.dbInvertTag(uint32_t(row));
        say(what, "invert_tag", row);
        break;
      }
      case 8:
        if (pick(0, 1)) {
          const int value = pick(0, 2);
          db_->set_all_tags(value);
          model_.dbSetAllTags(value);
          say(what, "set_all_tags", value);
        } else {
          db_->invert_all_tags();
          model_.dbInvertAllTags();
          say(what, "invert_all_tags");
        }
        break;
      case 9:
        say(what, "delete_tagged_records");
        differs(int(db_->delete_tagged_records()), model_.dbDeleteTagged(), "delete_tagged_records answer");
        break;
      case 10: {
        // On a third of the time, and mostly off again when on.
        const int on = model_.show_tags_only ? (pick(0, 3) == 0) : (pick(0, 2) == 0);
        db_->set_show_tags_only(on);
        model_.dbShowTagsOnly(on);
        say(what, "set_show_tags_only", on);
        break;
      }
      case 11:
      case 12: {
        const int row = pick(-1, visible + 1);
        const char* name = kNames[pick(0, static_cast<int>(std::size(kNames)) - 1)];
        db_->setField(unsigned(row), 1u, LightweightString<char>(name));
        model_.dbSetName(uint32_t(row), name);
        say(what, "setField", row, "Name", std::string("\"") + name + "\"");
        break;
      }
      case 13:
      case 14:
        sortDatabase(what);
        break;
      default:
        // Saves flush to disk, which costs more than everything else here: keep them rare.
        if (pick(0, 3) == 0) {
          pick(0, 5) == 0 ? reload(what) : save(what);
        } else {
          db_->clear_changed();
          say(what, "clear_changed");
        }
    }
  }

  void sortView(int v, std::ostringstream& what) {
    KSTViewRep& view = *views_[v];
    const int field = pick(-2, 2), order = pick(0, 1);
    World::View& model = model_.views[v];
    std::vector<std::pair<uint32_t, uint8_t>> before;
    bool all_present = true;
    for (int i = 0; i < model.count; ++i) {
      before.emplace_back(model.slots[i].row, model.slots[i].tag);
      all_present = all_present && model_.rowRecord(v, i) != kNoRecord;
    }
    view.sort(field, order);
    what << "sort(" << field << ", " << order << ")";
    ++sorts_;
    if (static_cast<int>(view.get_num_records()) != model.count) {
      failure_ = "the view sort changed the row count";
      return;
    }
    std::vector<std::pair<uint32_t, uint8_t>> after;
    for (int i = 0; i < model.count; ++i) {
      after.emplace_back(view.sourceRow(i), static_cast<uint8_t>(view.get_tag(static_cast<unsigned>(i))));
    }
    std::vector<std::pair<uint32_t, uint8_t>> a = before, b = after;
    std::sort(a.begin(), a.end());
    std::sort(b.begin(), b.end());
    if (a != b) {
      failure_ = "the view sort lost or gained entries";
      return;
    }
    for (int i = 0; i < model.count; ++i) {
      model.slots[i] = Slot{after[i].first, after[i].second};
    }
    // A missing record compares level with everything, which orders nothing.
    if (!all_present) return;
    const Keys k = keys(field, order);
    for (int i = 1; i < model.count; ++i) {
      if (compareRecords(valuesOf(model_.rowRecord(v, i)), valuesOf(model_.rowRecord(v, i - 1)), k) < 0) {
        failure_ = "view rows " + std::to_string(i - 1) + " and " + std::to_string(i) + " are out of order";
        return;
      }
    }
  }

  void copyOnNewDatabase(int v, std::ostringstream& what) {
    what << "copyWithNewBaseView()";
    std::vector<int> shown;
    const std::vector<Slot> expected = model_.copyOnNewDatabase(v, shown);
    KSTView copy(views_[v]->copyWithNewBaseView());
    if (!copy || static_cast<int>(copy->get_num_records()) != static_cast<int>(expected.size())) {
      failure_ = "the copy on a new database has the wrong rows";
      return;
    }
    for (std::size_t i = 0; i < expected.size(); ++i) {
      const int row = static_cast<int>(i);
      if (copy->sourceRow(row) != expected[i].row || copy->get_tag(static_cast<unsigned>(i)) != expected[i].tag ||
          viewprobe::identity(copy->get_record(static_cast<unsigned>(i))) != shown[i]) {
        failure_ = "the copy on a new database differs at row " + std::to_string(i);
        return;
      }
    }
    std::string why;
    if (!KestaDebug::checkWithViews(*copy->database(), {copy.get()}, &why)) failure_ = "copy: " + why;
  }

  void viewStep(std::ostringstream& what) {
    const std::vector<int> held = heldViews();
    const int v = held[std::size_t(pick(0, static_cast<int>(held.size()) - 1))];
    KSTViewRep& view = *views_[std::size_t(v)];
    const int rows = model_.views[std::size_t(v)].count;
    const int source = model_.sourceCount(v);
    const int row = pick(-1, rows), count = pick(0, 4);
    what << "v" << v << ".";
    switch (pick(0, 24)) {
      case 0:
        view.displayAllRecords();
        model_.displayAll(v);
        say(what, "displayAllRecords");
        break;
      case 1: {
        const int first = pick(-2, source + 2), at = pick(-2, rows + 2);
        view.displayRecordsAt(first, count, at);
        model_.displayRecordsAt(v, first, count, at);
        say(what, "displayRecordsAt", first, count, at);
        break;
      }
      case 2: {
        const int removed = pick(-1, rows + 1);
        view.remove(row, removed);
        model_.remove(v, row, removed);
        say(what, "remove", row, removed);
        break;
      }
      case 3:
      case 4:
        for (int i = 0, n = pick(1, 4); i < n; ++i) {
          const int tagged = pick(-1, rows), on = pick(0, 2);
          view.set_tag(unsigned(tagged), on);
          model_.setTag(v, tagged, on != 0);
          say(what, "set_tag", tagged, on);
        }
        break;
      case 5:
        if (pick(0, 1)) {
          const bool on = pick(0, 1);
          view.tagAll(on);
          model_.tagAll(v, on);
          say(what, "tagAll", on);
        } else {
          view.invertAllTags();
          model_.invertAll(v);
          say(what, "invertAllTags");
        }
        break;
      case 6:
      case 7:
        view.deleteRecords(row, count);
        model_.deleteRecords(v, row, count);
        say(what, "deleteRecords", row, count);
        break;
      case 8:
        view.deleteTagged();
        model_.runs(v, true, true);
        say(what, "deleteTagged");
        break;
      case 9: {
        const bool tagged = pick(0, 1);
        if (tagged) {
          view.removeTagged();
        } else {
          view.set_show_tags_only(1);
        }
        model_.runs(v, tagged, false);
        say(what, tagged ? "removeTagged" : "removeNonTagged");
        break;
      }
      case 10:
        view.removeRecordsFromBaseView(row, count);
        model_.removeFromBase(v, row, count);
        say(what, "removeRecordsFromBaseView", row, count);
        break;
      case 11: {
        const int at = pick(-1, rows + 1), added = pick(0, 3);
        if (static_cast<int>(model_.records.size()) + added > kMaxRows) break;
        if (pick(0, 3) == 0) {
          view.add_records(added);
          model_.insertBlank(v, rows, added);
          say(what, "add_records", added);
        } else {
          view.insertBlankRecords(at, added);
          model_.insertBlank(v, at, added);
          say(what, "insertBlankRecords", at, added);
        }
        break;
      }
      case 12: {
        const int at = pick(-1, rows + 1);
        view.displayTaggedRecordsAt(at);
        model_.displayTagged(v, at);
        say(what, "displayTaggedRecordsAt", at);
        break;
      }
      case 13:
        switch (pick(0, 2)) {
          case 0: {
            const int appended = pick(-1, source + 1);
            view.append(unsigned(appended));
            model_.append(v, uint32_t(appended));
            say(what, "append", appended);
            break;
          }
          case 1:
            view.buildIndex();
            model_.buildIndex(v);
            say(what, "buildIndex");
            break;
          default:
            view.clear();
            model_.clear(v);
            say(what, "clear");
        }
        break;
      case 14: {
        std::vector<int> earlier;
        for (int h : held) {
          if (h < v) earlier.push_back(h);
        }
        const int base = earlier.empty() || pick(0, 2) == 0
                             ? -1
                             : earlier[std::size_t(pick(0, static_cast<int>(earlier.size()) - 1))];
        view.baseView(base >= 0 ? views_[std::size_t(base)] : nullptr);
        model_.chain(v, base);
        say(what, "baseView", base);
        break;
      }
      case 15:
      case 16:
        sortView(v, what);
        break;
      case 17:
        if (static_cast<int>(held.size()) < kMaxHeldViews) {
          adopt(view.copy(), model_.copyView(v));
          say(what, "copy");
        }
        break;
      case 18:
        copyOnNewDatabase(v, what);
        break;
      case 19:
        drop(v);
        what << "drop";
        break;
      case 20:
        if (static_cast<int>(held.size()) < kMaxHeldViews) {
          newView();
          what.str("");
          what << "new view " << views_.size() - 1 << " on " << model_.views.back().base;
        }
        break;
      case 21: {
        const int deleted = pick(0, 3);
        view.delete_records(unsigned(row), unsigned(deleted));
        model_.deleteRecords(v, row, deleted);
        say(what, "delete_records", row, deleted);
        break;
      }
      default:
        view.invert_tag(unsigned(row));
        model_.setTag(v, row, !model_.tag(v, row));
        say(what, "invert_tag", row);
    }
  }

  testutil::TempDir dir_;
  World model_;
  std::mt19937& rng_;
  const bool derived_;
  Zr::Ptr<kesta> db_;
  std::vector<KSTViewRep*> views_;
  std::vector<bool> held_;
  std::vector<std::unique_ptr<Probe>> probes_;
  std::vector<std::string> log_;
  std::string failure_;
  std::size_t heard_ = 0;
  int next_id_ = 0;
  int sorts_ = 0;
  int reloads_ = 0;
};

struct Totals {
  std::size_t messages = 0;
  int sorts = 0;
  int reloads = 0;
};

// Runs one sequence; a disagreement fails the test with the seed and the operations.
void runSequence(unsigned seed, int steps, Totals& totals) {
  std::mt19937 rng(seed);
  const int rows = std::uniform_int_distribution<int>(0, 30)(rng);
  const int views = std::uniform_int_distribution<int>(1, 3)(rng);
  Harness harness(rows, views, seed % 2 == 1, rng);
  std::string trail;
  std::string diff = harness.compare();
  ASSERT_EQ(diff, "") << "seed " << seed << " after construction";
  for (int step = 0; step < steps; ++step) {
    const std::string what = harness.step();
    trail += "  " + what + "\n";
    if (trail.size() > 200000) trail.erase(0, trail.size() - 100000);
    diff = harness.compare();
    ASSERT_EQ(diff, "") << "seed " << seed << ", step " << step << " (" << rows << " rows, " << views
                        << " views), operations (latest last):\n"
                        << trail;
  }
  totals.messages += harness.messages();
  totals.sorts += harness.sorts();
  totals.reloads += harness.reloads();
}

// Seeds beyond the main run's that once found a fault; they run first, at the same length.
const std::vector<unsigned> kRegressionSeeds = {};

TEST(ModelCheck, RandomSequencesAgreeWithTheModel) {
  constexpr unsigned kSequences = 200;
  constexpr int kSteps = 1000;
  Totals totals;
  for (unsigned seed : kRegressionSeeds) {
    runSequence(seed, kSteps, totals);
    if (HasFatalFailure()) return;
  }
  for (unsigned seed = 1; seed <= kSequences; ++seed) {
    runSequence(seed, kSteps, totals);
    if (HasFatalFailure()) return;
  }
  std::printf("%u sequences of %d steps: %zu messages heard, %d sorts, %d reloads\n",
              kSequences + static_cast<unsigned>(kRegressionSeeds.size()), kSteps, totals.messages, totals.sorts,
              totals.reloads);
  // The sequences must reach the interesting states, not just agree on empty ones.
  EXPECT_GT(totals.messages, 50000u);
  EXPECT_GT(totals.sorts, 10000);
  EXPECT_GT(totals.reloads, 100);
}

}  // namespace
