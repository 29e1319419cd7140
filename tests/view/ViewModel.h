#ifndef KESTA_TESTS_VIEW_VIEWMODEL_H
#define KESTA_TESTS_VIEW_VIEWMODEL_H
// A reference model of a database and its views, written to be obviously right rather than
// fast: records are identities in a vector, each view a flat vector of slots (row, tag) whose
// size is the capacity, every walk the plain loop, every notifier a list of registrations
// delivered in order. Tests run the same operations here and on the real classes and compare
// rows, tags, capacities, use counts, the records shown and every message heard, in order.
// It follows the deletion protocol as the views implement it: a view chained on another hears
// each loss twice (the base view's removal and its summary), and its database's deletions in
// database rows as well. Database row numbers address the tagged index while show-tags-only
// is on. A record not yet labelled is kUnlabelled; the test labels new records after each
// step, in row order, on both sides.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

namespace viewmodel {

constexpr int kNoRecord = -1;
constexpr int kUnlabelled = -2;
constexpr int kDatabase = -1;  // object number of the database; views are 0, 1, ...

struct Slot {
  uint32_t row = 0;
  uint8_t tag = 0;
};

class World {
 public:
  enum class Type { kDeleted, kChanged };

  struct Registration {
    int id;
    bool probe;  // a test listener that logs what it hears
    int target;  // the probed object, or the view whose callback this is
    Type type;
  };

  struct View {
    int base = -1;
    std::vector<Slot> slots;  // size() is the capacity
    int count = 0;
    int db_registration = -1;
    int base_registration = -1;
    unsigned uses = 1;  // the test's handle, and one per view chained on this one
    bool alive = true;
  };

  std::vector<int> records;            // identities, database row order
  std::vector<int> tags;               // database tags, by row (meaningless where no record)
  std::vector<std::string> names;      // the Name field, by row
  std::vector<std::string> tag_texts;  // the Tag field, by row
  bool show_tags_only = false;
  std::vector<int> tagged;  // the tagged index: identities
  std::vector<uint16_t> sort_fields{0};
  std::vector<View> views;
  std::vector<std::string> log;

  explicit World(int rows) {
    for (int i = 0; i < rows; ++i) pushRow(next_id_++);
  }

  // Starts over on a database holding `ids` with those names and Tag texts (a reload): no
  // views, no listeners, nothing heard; identities continue after the largest one.
  void restart(const std::vector<int>& ids, const std::vector<std::string>& row_names,
               const std::vector<std::string>& row_tag_texts) {
    records = ids;
    tags.assign(ids.size(), 0);
    names = row_names;
    tag_texts = row_tag_texts;
    show_tags_only = false;
    tagged.clear();
    sort_fields = {0};
    views.clear();
    log.clear();
    db_listeners_.clear();
    view_listeners_.clear();
  }

  static std::string name(int object) { return object == kDatabase ? "db" : "v" + std::to_string(object); }
  static const char* typeName(Type type) { return type == Type::kDeleted ? "recordsDeleted" : "recordsChanged"; }
  static std::string entry(int object, Type type, const std::string& text) {
    return name(object) + " " + typeName(type) + " [" + text + "]";
  }

  void addProbes(int object) {
    listeners(object).push_back(Registration{next_registration_++, true, object, Type::kDeleted});
    listeners(object).push_back(Registration{next_registration_++, true, object, Type::kChanged});
  }

  // A new view on the database: registers with it, then its probes register with the view.
  int addView() {
    views.push_back(View{});
    const int v = static_cast<int>(views.size()) - 1;
    views[v].db_registration = add(kDatabase, v);
    addProbes(v);
    return v;
  }

  void pushRow(int id) {
    records.push_back(id);
    tags.push_back(0);
    names.emplace_back();
    tag_texts.emplace_back();
  }

  // Gives every record without a label the next id, in database row order.
  void label() {
    for (int& id : records) {
      if (id == kUnlabelled) id = next_id_++;
    }
  }

  int sourceCount(int v) const {
    const View& view = views[v];
    if (view.base >= 0) return views[view.base].count;
    return visibleCount();
  }

  // The identity of the record a source row shows; kNoRecord when none.
  int sourceRecord(int v, int64_t row) const {
    const View& view = views[v];
    if (view.base >= 0) {
      if (row < 0 || row >= views[view.base].count) return kNoRecord;
      return sourceRecord(view.base, views[view.base].slots[row].row);
    }
    if (row < 0 || row >= visibleCount()) return kNoRecord;
    return visibleRecord(static_cast<int>(row));
  }
  int rowRecord(int v, int row) const {
    if (row < 0 || row >= views[v].count) return kNoRecord;
    return sourceRecord(v, views[v].slots[row].row);
  }

  void chain(int v, int base) {
    if (base == views[v].base) return;
    clear(v);
    const int old = views[v].base;
    if (old >= 0) {
      drop(old, views[v].base_registration);
      views[v].base = -1;
      release(old);
    }
    views[v].base = base;
    if (base < 0) return;
    views[v].base_registration = add(base, v);
    ++views[base].uses;
  }

  // A use goes: the view dies when the count was 0 or 1.
  void release(int v) {
    if (views[v].uses > 1) {
      --views[v].uses;
      return;
    }
    views[v].uses = 0;
    views[v].alive = false;
    chain(v, -1);
    clear(v);
    drop(kDatabase, views[v].db_registration);
  }

  void clear(int v) {
    views[v].slots.clear();
    views[v].count = 0;
  }

  void sizeFor(int v, int wanted, int copy_limit) {
    std::vector<Slot>& slots = views[v].slots;
    if (wanted == 0) {
      slots.clear();
      return;
    }
    const int target = std::max(wanted, 20);
    const int capacity = static_cast<int>(slots.size());
    int resized;
    if (target <= capacity) {
      resized = capacity <= 2 * target ? capacity : capacity / 2;
    } else {
      resized = std::max(2 * capacity, target);
    }
    if (resized == capacity) return;
    std::vector<Slot> fresh(static_cast<std::size_t>(resized));
    const int copied = resized < copy_limit ? target : copy_limit;
    for (int i = 0; i < copied; ++i) fresh[i] = slots[i];
    slots = fresh;
  }

  // Opens `count` slots at `at` (entries from `at` move up, last first) and writes rows.
  void open(int v, int at, int count, const std::vector<uint32_t>& rows, uint32_t shift) {
    View& view = views[v];
    sizeFor(v, view.count + count, view.count);
    for (int i = view.count - 1; i >= at; --i) {
      Slot moved = view.slots[i];
      moved.row += shift;
      view.slots[i + count] = moved;
    }
    for (std::size_t i = 0; i < rows.size(); ++i) view.slots[static_cast<std::size_t>(at) + i].row = rows[i];
    view.count += count;
  }

  int clamp(int v, int at) const { return at < 0 ? 0 : std::min(at, views[v].count); }

  void append(int v, uint32_t row) { open(v, views[v].count, 1, {row}, 0); }

  void buildIndex(int v) {
    views[v].count = 0;
    for (int r = 0; r < sourceCount(v); ++r) append(v, static_cast<uint32_t>(r));
  }

  int displayRecordsAt(int v, int first, int count, int at) {
    if (count < 0) return count;
    std::vector<uint32_t> rows;
    for (int i = 0; i < count; ++i) rows.push_back(static_cast<uint32_t>(first + i));
    open(v, clamp(v, at), count, rows, 0);
    return count;
  }

  void displayAll(int v) {
    remove(v, 0, views[v].count);
    displayRecordsAt(v, 0, sourceCount(v), 0);
  }

  int sourceTag(int v, int row) const {
    const View& view = views[v];
    if (view.base >= 0) return row < views[view.base].count ? views[view.base].slots[row].tag : 0;
    return dbTag(row);
  }

  int displayTagged(int v, int at) {
    std::vector<uint32_t> rows;
    for (int r = 0; r < sourceCount(v); ++r) {
      if (sourceTag(v, r) != 0) rows.push_back(static_cast<uint32_t>(r));
    }
    open(v, clamp(v, at), static_cast<int>(rows.size()), rows, 0);
    return static_cast<int>(rows.size());
  }

  // The database row of a view row, down the chain; 0 out of range.
  int64_t baseIndex(int v, int64_t row) const {
    if (row < 0 || row >= views[v].count) return 0;
    const uint32_t entry = views[v].slots[row].row;
    if (views[v].base >= 0) return baseIndex(views[v].base, static_cast<int32_t>(entry));
    return static_cast<int32_t>(entry);
  }

  // The first view row showing that record; -1 when none.
  int find(int v, int id) const {
    if (id == kNoRecord) return -1;
    for (int i = 0; i < views[v].count; ++i) {
      if (rowRecord(v, i) == id) return i;
    }
    return -1;
  }

  // Rows of `other` not shown yet, as database rows, for a view on the database itself.
  int displayAllFrom(int v, int other, int at) {
    if (views[v].base >= 0 || views[other].base >= 0 || views[other].count == 0) return 0;
    int added = 0;
    for (int i = 0; i < views[other].count; ++i) {
      const int id = rowRecord(other, i);
      if (id == kNoRecord || find(v, id) >= 0) continue;
      displayRecordsAt(v, static_cast<int>(baseIndex(other, i)), 1, at++);
      ++added;
    }
    return added;
  }

  // A copy of view v on the same database, held by the test: chained views copy their base
  // view's rows, others their own records; then v's flags by position.
  int copyView(int v) {
    const int c = addView();
    if (views[v].base >= 0) {
      chain(c, views[v].base);
      displayAll(c);
    } else {
      displayAllFrom(c, v, 0);
    }
    for (int i = 0; i < views[v].count; ++i) setTag(c, i, views[v].slots[i].tag != 0);
    return c;
  }

  // What a copy of view v onto a private copy of the database shows, row by row: the
  // identity and the flag. The private copy holds the visible records that exist, in order;
  // each row of v that shows a record lists its database row there, at position i.
  std::vector<Slot> copyOnNewDatabase(int v, std::vector<int>& shown) const {
    std::vector<int> copied;
    for (int row = 0; row < visibleCount(); ++row) {
      if (visibleRecord(row) != kNoRecord) copied.push_back(visibleRecord(row));
    }
    std::vector<Slot> rows;
    for (int i = 0; i < views[v].count; ++i) {
      if (rowRecord(v, i) == kNoRecord) continue;
      const std::size_t at = std::min<std::size_t>(static_cast<std::size_t>(i), rows.size());
      rows.insert(rows.begin() + static_cast<std::ptrdiff_t>(at), Slot{static_cast<uint32_t>(baseIndex(v, i)), 0});
    }
    shown.clear();
    for (std::size_t i = 0; i < rows.size(); ++i) {
      rows[i].tag = i < static_cast<std::size_t>(views[v].count) ? views[v].slots[i].tag : 0;
      shown.push_back(rows[i].row < copied.size() ? copied[rows[i].row] : kNoRecord);
    }
    return rows;
  }

  void setTag(int v, int row, bool on) {
    if (row >= 0 && row < views[v].count) views[v].slots[row].tag = on;
  }
  bool tag(int v, int row) const { return row >= 0 && row < views[v].count && views[v].slots[row].tag; }
  void tagAll(int v, bool on) {
    for (int i = 0; i < views[v].count; ++i) setTag(v, i, on);
  }
  void invertAll(int v) {
    for (int i = 0; i < views[v].count; ++i) setTag(v, i, !tag(v, i));
  }

  void remove(int v, int row, int count) {
    View& view = views[v];
    const int rows = view.count;
    if (row < 0 || row >= rows) return;
    if (count < 0) count = 0;
    if (row + count > rows) {
      count = rows - row;
    } else {
      for (int i = row; i + count < rows; ++i) view.slots[i] = view.slots[i + count];
    }
    sizeFor(v, rows - count, rows);
    view.count = rows - count;
    std::string text;
    for (int r = row; r < row + count; ++r) text += std::to_string(r) + " ";
    issue(v, Type::kDeleted, text);
  }

  // The protocol, entry by entry.
  void recordsDeleted(int v, const std::string& text) {
    std::string summary;
    int removed = 0;
    std::istringstream words(text);
    std::string token;
    for (int64_t k = 0; words >> token; ++k) {
      const int64_t named = std::strtol(token.c_str(), nullptr, 10) - k;
      int j = 0;
      while (j < views[v].count) {
        Slot& slot = views[v].slots[j];
        if (static_cast<int64_t>(slot.row) > named) {
          slot.row -= 1;
          ++j;
        } else if (static_cast<int64_t>(slot.row) == named) {
          remove(v, j, 1);
          summary += std::to_string(k + j - 1) + " ";
          ++removed;
        } else {
          ++j;
        }
      }
    }
    if (removed) {
      issue(v, Type::kDeleted, summary);
      issue(v, Type::kChanged, "");
    }
  }

  // Row numbers address the tagged index while show-tags-only is on.
  int visibleCount() const { return static_cast<int>(show_tags_only ? tagged.size() : records.size()); }
  int visibleRecord(int row) const { return show_tags_only ? tagged[row] : records[row]; }
  // The full-list row of a record; -1 when none.
  int rowOf(int id) const {
    if (id == kNoRecord) return -1;
    for (std::size_t r = 0; r < records.size(); ++r) {
      if (records[r] == id) return static_cast<int>(r);
    }
    return -1;
  }
  // The full-list row of the record at a visible row; -1 when there is no record there.
  int recordRow(int64_t row) const {
    if (row < 0 || row >= visibleCount()) return -1;
    return show_tags_only ? rowOf(visibleRecord(static_cast<int>(row)))
                          : (records[row] == kNoRecord ? -1 : static_cast<int>(row));
  }
  int dbTag(int64_t row) const {
    const int r = recordRow(row);
    return r < 0 ? -1 : tags[r];
  }
  int dbNumTags() const {
    int n = 0;
    for (int row = 0; row < visibleCount(); ++row) n += dbTag(row) != 0;
    return n;
  }

  void dbDelete(uint32_t first, uint32_t count) {
    if (show_tags_only || first >= records.size()) return;
    if (count == 0) return;
    const uint32_t removed = std::min<uint32_t>(count, static_cast<uint32_t>(records.size()) - first);
    std::string text;
    for (uint32_t r = first; r < first + removed; ++r) text += std::to_string(r) + " ";
    eraseRows(first, removed);
    issue(kDatabase, Type::kDeleted, text);
  }

  void dbInsert(uint32_t at, uint32_t count) {
    if (show_tags_only || at > records.size()) return;
    records.insert(records.begin() + at, count, kNoRecord);
    tags.insert(tags.begin() + at, count, 0);
    names.insert(names.begin() + at, count, std::string());
    tag_texts.insert(tag_texts.begin() + at, count, std::string());
    if (count > 0) records[at] = kUnlabelled;
  }

  uint32_t dbAdd(int count) {
    if (show_tags_only) return 0xFFFFFFFFu;
    const uint32_t before = static_cast<uint32_t>(records.size());
    for (int i = 0; i < count; ++i) pushRow(kUnlabelled);
    return before;
  }

  void dbSetTag(int64_t row, int value) {
    const int r = recordRow(row);
    if (r >= 0) tags[r] = value & 0xFF;
  }
  void dbInvertTag(int64_t row) {
    const int r = recordRow(row);
    if (r >= 0) tags[r] = tags[r] == 0 ? 1 : 0;
  }
  void dbSetAllTags(int value) {
    for (int row = 0; row < visibleCount(); ++row) dbSetTag(row, value);
  }
  // Every record of the full list, whatever is shown.
  void dbInvertAllTags() {
    for (std::size_t r = 0; r < records.size(); ++r) {
      if (records[r] != kNoRecord) tags[r] = tags[r] == 0 ? 1 : 0;
    }
  }
  void dbSetName(int64_t row, const std::string& name) {
    const int r = recordRow(row);
    if (r >= 0) names[r] = name;
  }

  // The walk below is bounded by the visible count, which reads the index being rebuilt: on
  // a plain database a rebuild while show-tags-only is on leaves the index empty.
  void dbIndexTags() {
    tagged.clear();
    for (int row = 0; row < visibleCount(); ++row) {
      const std::size_t r = static_cast<std::size_t>(row);
      if (r >= records.size() || records[r] == kNoRecord || tags[r] != 0) {
        tagged.push_back(r < records.size() ? records[r] : kNoRecord);
      }
    }
  }
  void dbShowTagsOnly(int on) {
    show_tags_only = on != 0;
    if (on) dbIndexTags();
  }

  int dbDeleteTagged() {
    if (show_tags_only) return -1;
    // One deletion per run of rows tagged exactly 1.
    auto one = [&](std::size_t r) { return r < records.size() && records[r] != kNoRecord && tags[r] == 1; };
    int deleted = 0;
    for (std::size_t row = 0; row < records.size(); ++row) {
      std::size_t end = row;
      while (one(end)) ++end;
      if (end == row) continue;
      dbDelete(static_cast<uint32_t>(row), static_cast<uint32_t>(end - row));
      deleted += static_cast<int>(end - row);
    }
    return deleted;
  }

  // Saving stores each record's tag in its Tag field through the row setter, which reaches
  // no record while show-tags-only is on.
  void dbSave() {
    if (show_tags_only) return;
    for (std::size_t r = 0; r < records.size(); ++r) {
      if (records[r] != kNoRecord) tag_texts[r] = std::to_string(tags[r]);
    }
  }

  // Puts the rows in the order of `ids`, a permutation of the identities (records without a
  // label never sort, as the test labels after every step).
  void reorder(const std::vector<int>& ids) {
    std::vector<int> new_tags;
    std::vector<std::string> new_names, new_texts;
    for (int id : ids) {
      const int r = id == kNoRecord ? -1 : rowOf(id);
      new_tags.push_back(r < 0 ? 0 : tags[r]);
      new_names.push_back(r < 0 ? std::string() : names[r]);
      new_texts.push_back(r < 0 ? std::string() : tag_texts[r]);
    }
    records = ids;
    tags = new_tags;
    names = new_names;
    tag_texts = new_texts;
  }

  void eraseRows(uint32_t first, uint32_t count) {
    records.erase(records.begin() + first, records.begin() + first + count);
    tags.erase(tags.begin() + first, tags.begin() + first + count);
    names.erase(names.begin() + first, names.begin() + first + count);
    tag_texts.erase(tag_texts.begin() + first, tag_texts.begin() + first + count);
  }

  int run(int v, int row, int n) const {
    if (row >= n - 1) return 1;
    int length = 1;
    const std::vector<Slot>& s = views[v].slots;
    while (length < n - row &&
           static_cast<uint64_t>(s[row + length].row) == static_cast<uint64_t>(s[row + length - 1].row) + 1) {
      ++length;
    }
    return length;
  }

  // Hands view rows down the chain run by run: to the database's deletion when deleting,
  // else to the base view's removal (or, at the bottom, to remove).
  void passRuns(int v, int row, int count, bool deleting) {
    while (row >= 0) {
      const int n = static_cast<int>(std::min<int64_t>(count, views[v].count - row));
      if (n < 1) return;
      const int base = views[v].base;
      if (!deleting && base < 0) return remove(v, row, n);
      const int length = run(v, row, n);
      const uint32_t first = views[v].slots[row].row;
      if (base >= 0) {
        passRuns(base, static_cast<int>(first), length, deleting);
      } else {
        dbDelete(first, static_cast<uint32_t>(length));
      }
      count = n - length;
      if (count <= 0) return;
    }
  }
  void deleteRecords(int v, int row, int count) { passRuns(v, row, count, true); }
  void removeFromBase(int v, int row, int count) { passRuns(v, row, count, false); }

  // The run walk of deleteTagged (deleting) and removeTagged / removeNonTagged.
  int runs(int v, bool tagged, bool deleting) {
    int total = 0, start = -1;
    for (int i = 0; i < views[v].count; ++i) {
      if (tag(v, i) == tagged) {
        if (start < 0) start = i;
      } else if (start >= 0) {
        deleting ? deleteRecords(v, start, i - start) : removeFromBase(v, start, i - start);
        total += i - start;
        i = start;
        start = -1;
      }
    }
    if (start >= 0 && views[v].count > start) {
      const int rest = views[v].count - start;
      deleting ? deleteRecords(v, start, rest) : removeFromBase(v, start, rest);
      total += rest;
    }
    return total;
  }

  void insertBlank(int v, int at, int count) {
    if (count < 0) return;
    at = clamp(v, at);
    uint32_t first;
    if (at < views[v].count) {
      first = views[v].slots[at].row;
      if (views[v].base >= 0) {
        insertBlank(views[v].base, static_cast<int>(first), count);
      } else {
        dbInsert(first, static_cast<uint32_t>(count));
      }
    } else {
      first = static_cast<uint32_t>(sourceCount(v));
      if (views[v].base >= 0) {
        insertBlank(views[v].base, views[views[v].base].count, count);
      } else {
        dbAdd(count);
      }
    }
    std::vector<uint32_t> rows;
    for (int i = 0; i < count; ++i) rows.push_back(first + static_cast<uint32_t>(i));
    open(v, at, count, rows, static_cast<uint32_t>(count));
  }

 private:
  std::vector<Registration>& listeners(int object) {
    if (object == kDatabase) return db_listeners_;
    if (view_listeners_.size() <= static_cast<std::size_t>(object))
      view_listeners_.resize(static_cast<std::size_t>(object) + 1);
    return view_listeners_[object];
  }

  int add(int object, int view) {
    const int id = next_registration_++;
    listeners(object).push_back(Registration{id, false, view, Type::kDeleted});
    return id;
  }

  void drop(int object, int id) {
    std::vector<Registration>& list = listeners(object);
    list.erase(std::remove_if(list.begin(), list.end(), [&](const Registration& r) { return r.id == id; }), list.end());
  }

  bool registered(int object, int id) {
    for (const Registration& r : listeners(object)) {
      if (r.id == id) return true;
    }
    return false;
  }

  void issue(int object, Type type, const std::string& text) {
    const std::vector<Registration> snapshot = listeners(object);
    for (const Registration& r : snapshot) {
      if (r.type != type || !registered(object, r.id)) continue;
      if (r.probe) {
        log.push_back(entry(r.target, type, text));
      } else {
        recordsDeleted(r.target, text);
      }
    }
  }

  std::vector<Registration> db_listeners_;
  std::vector<std::vector<Registration>> view_listeners_;
  int next_id_ = 0;
  int next_registration_ = 0;
};

}  // namespace viewmodel

#endif
