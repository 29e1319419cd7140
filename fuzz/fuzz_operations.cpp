// Structure-aware: the input decodes into a sequence of operations on one database and up to
// six views over it (chained or not, copied, dropped), with saves and reloads through an
// in-memory disk. After every operation the database and every view must pass their checks.
// Row and column arguments deliberately stray out of range.

#include <climits>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fieldmap/FieldMap.h"
#include "fuzz/FuzzChecks.h"
#include "fuzz/FuzzInput.h"
#include "fuzz/MemoryFileSystem.h"
#include "record/kesta.h"
#include "view/KSTView.h"
#include "view/KSTViewCursor.h"
#include "view/KSTViewRep.h"

namespace {

using fuzzing::check;
using fuzzing::FuzzInput;

constexpr std::size_t kMaxViews = 6;
constexpr unsigned kMaxRecords = 64;
constexpr int kMaxSteps = 32;

const char* const kValues[] = {"",           "A001",        "a001",        "  b02",       "B10",
                               "b9",         "01:00:00:00", "01:00:00;00", "10:00:01:00", "x,y",
                               "say \"hi\"", "line\nfeed",  "back\\n",     "1",           "0"};
constexpr int kValueCount = sizeof kValues / sizeof kValues[0];

std::vector<DBFieldDesc> columns() {
  return {{"Cookie", DBFieldTypes::kText},         {"Name", DBFieldTypes::kText},         {"Reel", DBFieldTypes::kText},
          {"Start time", DBFieldTypes::kTimecode}, {"End time", DBFieldTypes::kTimecode}, {"Tag", DBFieldTypes::kText}};
}

class Harness {
 public:
  explicit Harness(FuzzInput& in) : in_(in), db_(new kesta(columns())) {
    db_->set_filename(LightweightString<wchar_t>(L"/fuzz/ops.kst"));
    db_->set_param_val("Mode", "fuzz");  // a file without parameters would not load back
    db_->add_records(in_.range(0, 12));
    for (unsigned r = 0; r < db_->get_num_records(); ++r) fill(r);
  }
  ~Harness() { views_.clear(); }  // views go before their database

  void run() {
    for (int step = 0; step < kMaxSteps && !in_.empty(); ++step) {
      if (in_.flag()) {
        databaseStep();
      } else {
        viewStep();
      }
      checkAll();
    }
  }

 private:
  int row(unsigned rows) { return in_.range(-1, static_cast<int>(rows) + 1); }
  unsigned urow(unsigned rows) { return static_cast<unsigned>(row(rows)); }
  const char* value() { return kValues[in_.range(0, kValueCount - 1)]; }
  unsigned field() { return static_cast<unsigned>(in_.range(-1, static_cast<int>(db_->get_num_fields()) + 1)); }
  bool roomFor(int count) const {
    return db_->get_num_records() + static_cast<unsigned>(count < 0 ? 0 : count) <= kMaxRecords;
  }

  void fill(unsigned r) {
    for (unsigned f = 0; f + 1 < db_->get_num_fields(); ++f) db_->set_field(r, f, value());
  }

  void databaseStep() {
    kesta& db = *db_;
    const unsigned rows = db.get_num_records();
    switch (in_.range(0, 21)) {
      case 0: {
        const int count = in_.range(0, 4);
        if (roomFor(count)) db.insert_records(urow(rows), static_cast<unsigned>(count));
        break;
      }
      case 1: {
        const int count = in_.range(-1, 6);
        if (roomFor(count)) db.add_records(count);
        break;
      }
      case 2:
        db.delete_records(urow(rows), static_cast<unsigned>(in_.range(0, 5)));
        break;
      case 3:
        db.set_tag(urow(rows), in_.range(-1, 256));
        break;
      case 4:
        db.invert_tag(urow(rows));
        break;
      case 5:
        in_.flag() ? db.set_all_tags(in_.range(0, 2)) : db.invert_all_tags();
        break;
      case 6:
        db.delete_tagged_records();
        break;
      case 7:
        db.set_show_tags_only(in_.range(0, 1));
        break;
      case 8: {
        int keys[10];
        const int n = in_.range(0, 9);
        for (int i = 0; i < n; ++i) keys[i] = in_.range(0, static_cast<int>(db.get_num_fields()) + 2);
        keys[n] = -1;
        db.set_sortfields(keys);
        db.sort(in_.flag() ? -1 : 1, in_.range(0, 1));
        break;
      }
      case 9:
        db.set_field(urow(rows), field(), value());
        break;
      case 10:
        db.setField(urow(rows), field(), LightweightString<char>(value()));
        break;
      case 11: {
        const Cookie id(LightweightString<char>(value()), false);
        if (in_.flag()) {
          if (roomFor(1)) db.addRecord(id);
        } else {
          db.set_field(urow(rows), id);
        }
        // The index may name an entry without a record (insert_records leaves such entries,
        // and they read as the empty identifier), so only the lookups themselves are run.
        db.getRowIndexByID(id);
        db.get_record(id);
        break;
      }
      case 12:
        db.findFirst(in_.flag() ? "cookie" : "Reel", value(), in_.range(0, 3));
        break;
      case 13: {
        Zr::Ptr<dbrecord> query = db.make_dummy_record();
        for (unsigned short f = 0; f < query->get_num_fields(); ++f) {
          if (in_.flag()) query->set_field(f, value());
        }
        db.set_query(query.get());
        db.tag_matching_records(in_.range(0, 1));
        break;
      }
      case 14:
        db.tag_all_different(static_cast<int>(field()));
        break;
      case 15: {
        Zr::Ptr<kesta> other(new kesta(db, 1));
        if (roomFor(static_cast<int>(other->get_num_records())))
          in_.flag() ? db.add_kesta(other.get()) : db.merge_all_matching(other.get());
        break;
      }
      case 16:
        save();
        break;
      case 17:
        reload();
        break;
      case 18:
        db.clear_changed();
        break;
      case 19:
        db.set_fieldname(field(), value());
        break;
      case 20: {
        // Walks the visible rows the way the tool does.
        for (unsigned r = 0; r < db.get_num_records(); ++r) {
          char text[16];
          int n = 0;
          db.in_field(r, field(), text, static_cast<int>(sizeof text) - 1);
          db.in_field(r, field(), n);
        }
        break;
      }
      default:
        db.getField(urow(rows), field());
        break;
    }
  }

  KSTViewRep* pickView() {
    if (views_.empty()) return nullptr;
    return views_[static_cast<std::size_t>(in_.range(0, static_cast<int>(views_.size()) - 1))].get();
  }

  // A view may stand on another only when both see the same database and no cycle results.
  bool canChain(KSTViewRep* view, KSTViewRep* base) const {
    if (!base || base->database() != view->database()) return false;
    for (KSTViewRep* v = base; v; v = v->baseViewRep()) {
      if (v == view) return false;
    }
    return true;
  }

  void addView(KSTViewRep* view) {
    if (!view) return;
    KSTView handle(view);
    if (views_.size() < kMaxViews) views_.push_back(handle);
  }

  void viewStep() {
    KSTViewRep* view = pickView();
    const int kind = in_.range(0, 29);
    if (!view || kind == 0) {
      if (views_.size() < kMaxViews) {
        KSTView fresh(new KSTViewRep(db_.get()));
        KSTViewRep* base = pickView();
        if (base && in_.flag() && canChain(fresh.get(), base)) fresh->baseView(base);
        fresh->displayAllRecords();
        views_.push_back(fresh);
      }
      return;
    }
    const unsigned rows = view->get_num_records();
    const unsigned source = view->db() ? view->db()->get_num_records() : 0;
    switch (kind) {
      case 1:
        view->displayAllRecords();
        break;
      case 2:
        view->displayRecordsAt(in_.range(-2, static_cast<int>(source) + 2), in_.range(0, 4), row(rows));
        break;
      case 3:
        view->remove(row(rows), in_.range(-1, static_cast<int>(rows) + 1));
        break;
      case 4:
        view->set_tag(urow(rows), in_.range(0, 2));
        break;
      case 5:
        in_.flag() ? view->tagAll(in_.flag()) : view->invertAllTags();
        break;
      case 6:
        view->deleteRecords(row(rows), in_.range(0, 4));
        break;
      case 7:
        view->deleteTagged();
        break;
      case 8:
        in_.flag() ? view->removeTagged() : view->removeNonTagged();
        break;
      case 9:
        view->removeRecordsFromBaseView(row(rows), in_.range(0, 4));
        break;
      case 10: {
        const int count = in_.range(0, 3);
        if (roomFor(count)) in_.flag() ? view->insertBlankRecords(row(rows), count) : (void)view->add_records(count);
        break;
      }
      case 11:
        view->displayTaggedRecordsAt(row(rows));
        break;
      case 12: {
        KSTViewRep* base = pickView();
        if (in_.flag()) {
          view->baseView(nullptr);
        } else if (canChain(view, base)) {
          view->baseView(base);
        }
        break;
      }
      case 13:
        view->sort(in_.range(-2, 2), in_.range(0, 1));
        break;
      case 14:
        addView(view->copy());
        break;
      case 15:
        addView(view->copyWithNewBaseView());
        break;
      case 16:
        addView(view->newTagSubview());
        break;
      case 17: {
        // Drops a handle; views chained on it keep it alive.
        const std::size_t at = static_cast<std::size_t>(in_.range(0, static_cast<int>(views_.size()) - 1));
        views_.erase(views_.begin() + static_cast<std::ptrdiff_t>(at));
        break;
      }
      case 18:
        view->tagDuplicates(static_cast<int>(field()));
        break;
      case 19:
        view->tag_all_different(static_cast<int>(field()));
        break;
      case 20: {
        Zr::Ptr<dbrecord> query = db_->make_dummy_record();
        query->set_field(in_.range(0, 5), value());
        view->set_query(query.get());
        view->tagMatches(in_.range(0, 1));
        break;
      }
      case 21:
        view->tagBaseFromTags();
        break;
      case 22: {
        KSTViewRep* other = pickView();
        if (other) view->displayAllFromAt(other, row(rows));
        break;
      }
      case 23:
        switch (in_.range(0, 2)) {
          case 0:
            view->append(static_cast<unsigned>(in_.range(-1, static_cast<int>(source) + 1)));
            break;
          case 1:
            view->buildIndex();
            break;
          default:
            view->clear();
        }
        break;
      case 24: {
        KSTView handle(view);
        KSTViewCursor cursor(handle, -1, in_.flag());
        for (int i = 0, n = in_.range(0, 8); i < n; ++i) {
          switch (in_.range(0, 3)) {
            case 0:
              ++cursor;
              break;
            case 1:
              --cursor;
              break;
            case 2:
              cursor.remove();
              break;
            default:
              cursor.set_index(row(rows));
          }
          check(cursor.index() >= -1 && cursor.index() < static_cast<int>(view->get_num_records()), "cursor row");
        }
        break;
      }
      case 25: {
        KSTView handle(view);
        FieldMap map(handle);
        map.setVisible(in_.range(-1, map.size()), in_.flag());
        view->set_param_val("V5_FIELD_MAP", map.asString().c_str());
        break;
      }
      case 26:
        view->set_field(urow(rows), field(), value());
        break;
      case 27:
        view->delete_records(urow(rows), static_cast<unsigned>(in_.range(0, 3)));
        break;
      case 28:
        view->find(db_->get_record(urow(db_->get_num_records())).get());
        break;
      default:
        view->set_show_tags_only(1);
        break;
    }
  }

  void save() {
    const int written = db_->save_text();
    check(disk_.get("/fuzz/ops.kst") != nullptr, "the save wrote the file");
    check(written >= 0 && static_cast<unsigned>(written) <= kMaxRecords * 2, "records written");
  }

  // Reads the saved file into a new database; sometimes the new one replaces the old, after
  // every view of the old one has gone.
  void reload() {
    save();
    Zr::Ptr<kesta> back(new kesta(LightweightString<wchar_t>(L"/fuzz/ops.kst"), INT_MAX, false));
    bool names_carried = true;
    for (unsigned f = 0; f < db_->get_num_fields(); ++f) {
      names_carried = names_carried && fuzzing::carried(db_->fields()[f].name, 250);
    }
    if (names_carried) {
      check(back->get_valid() == 1, "a saved database reloads");
      check(back->get_num_fields() == db_->get_num_fields(), "reload columns");
    }
    fuzzing::checkDatabase(*back);
    if (in_.flag()) {
      views_.clear();
      db_ = back;
    }
  }

  void checkAll() {
    fuzzing::checkRows(*db_);
    check(db_->get_num_records() <= kMaxRecords * 2, "record bound");
    std::vector<const KSTViewRep*> on_db;
    for (const KSTView& v : views_) {
      if (v->database() == db_.get()) {
        on_db.push_back(v.get());
      } else {
        fuzzing::checkView(*v);
      }
    }
    std::string why;
    check(KestaDebug::checkWithViews(*db_, on_db, &why), "views", why);
  }

  FuzzInput& in_;
  fuzzing::MemoryFileSystem disk_;
  Zr::Ptr<kesta> db_;
  std::vector<KSTView> views_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzing::silenceLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  FuzzInput in(data, size);
  Harness harness(in);
  harness.run();
  return 0;
}
