#ifndef KESTA_VIEW_KSTVIEWREP_H
#define KESTA_VIEW_KSTVIEWREP_H
// KSTViewRep: a view, an ordered subset of the records of one database with a tag flag of its
// own per row. It implements the whole record-source interface, so whatever works on a
// database (field maps, searches, savers) works on a view.
//
//   KSTView all(new KSTViewRep(db.get()));    // empty until displayed
//   all->displayAllRecords();
//   all->tagMatches(0);                       // flags the rows matching the query
//   KSTView tagged(all->newTagSubview());     // chained on `all`, showing the flagged rows
//   all->deleteTagged();                      // the flagged records leave the database
//
// A view keeps no records: its row index holds source row numbers. The source is the base
// view when one is set, else the database, so chains of views end at one database. Three
// kinds of row numbers are never mixed:
//  1. view rows: positions in this view, 0 .. get_num_records() - 1;
//  2. source rows: what an index entry names, rows of db() (sourceRow reads them raw);
//  3. database rows: baseIndex walks the chain down to them.
//
// Invariants:
//  1. 0 <= row count <= capacity; the capacity follows sizeIndexFor.
//  2. Every entry names a source row, or one that the deletion protocol left dangling (at
//     or past the source's end, 4294967295 included); such a row reads as a missing record.
//  3. The view is registered for "recordsDeleted" with its database and, when chained, with
//     its base view, of which it holds one use.
//
// Deletions reach a view as "recordsDeleted" notifications from its database and its base
// view; it repairs its index and announces its own losses in the same words (see
// recordsDeletedNotify). Insertions are not announced.
//
// Ownership: the database is not owned and must outlive the view. A view lives while it is
// used: KSTView handles and views chained on it hold uses (addUse/releaseUse); the last
// release destroys it.
//
// Thread safety: reading while nothing changes the view or its chain is safe; changes, and
// handles (the use count is a plain counter), need the caller's serialisation. Sorting uses
// process-wide state shared with the database sort: one sort at a time in a process.

#include <cstdint>
#include <string>

#include "expr/SExpr.h"
#include "record/kesta.h"
#include "support/CookieContainers.h"
#include "support/GrowString.h"
#include "view/ViewIndex.h"

class KESTA_API KSTViewRep : public KSTBase, public Notifier {
 public:
  // ------------------------------------------------------------------ construction
  // Each constructor attaches `database` (null is allowed) and sets the field specification;
  // none fills the index, so a new view has no rows.
  // Identity specification: every field name of the database, joined by ",".
  explicit KSTViewRep(kesta* database);
  // `spec`, or the identity specification when null.
  KSTViewRep(kesta* database, const char* spec);
  // The null-terminated `names`, each followed by ","; the identity specification when null.
  KSTViewRep(kesta* database, const char** names);
  // Unchains, detaches from the database and frees the field specification.
  ~KSTViewRep() override;
  KSTViewRep(const KSTViewRep&) = delete;
  KSTViewRep& operator=(const KSTViewRep&) = delete;

  // Empty, detached, use count 0, guards released; then internRevision(). Does not release
  // a base view's use: only for views that hold none.
  void init();
  // Appends "KESTA" = "Rev 1" when the parameters hold no "KESTA".
  void internRevision();
  // Attaches to `database` (null detaches): unchains, empties the index, moves the
  // "recordsDeleted" registration, takes the database's file name and parameters. Nothing
  // when it is the current database.
  void kst(kesta* database);
  // Chains on `base` (null unchains): empties the index and the parameters, releases the
  // old base view's use (which may destroy it), registers with `base`, copies its
  // parameters and takes a use of it. Nothing when it is the current base view.
  void baseView(KSTViewRep* base);

  // ------------------------------------------------------------------------- uses
  void addUse() noexcept { ++uses_; }
  // Decrements a non-zero count; destroys the view when the count was 0 or 1.
  void releaseUse();
  unsigned useCount() const noexcept { return uses_; }

  // --------------------------------------------------------------------- mapping
  // The source: the base view when set, else the database; null when neither.
  iKST* db() const noexcept;
  kesta* database() const noexcept { return db_; }
  KSTViewRep* baseViewRep() const noexcept { return base_; }
  // The record of view row `row` (no reference kept); null without a source or out of range.
  dbrecord* operator[](int row) const;
  // The database row of view row `row`, through the whole chain; 0 without a source or out of
  // range (0 is also a valid row: check the range first).
  int baseIndex(int row) override;
  // The raw index entry of view row `row` (a source row); -1 (all bits) out of range.
  unsigned sourceRow(int row) const;
  // The first view row whose entry names `sourceRow`; -1 (all bits) when none.
  unsigned findViewIndexForBaseRow(unsigned long sourceRow) const;
  // The first view row showing that very record; -1 when null, no source, empty or absent.
  int find(dbrecord* record) const;

  // -------------------------------------------------------------------- the index
  // Releases the index (capacity 0, no rows) without notifications.
  void clear();
  // The capacity rule for `wanted` entries: 0 releases the index; otherwise at least 20,
  // doubling to grow, halving (once per call) when above twice the need. REQUIRES: wanted >=
  // the row count, or the rows past the kept slots are lost.
  void sizeIndexFor(int wanted);
  int capacity() const noexcept { return index_.capacity(); }
  // Adds source row `row` at the end; its tag is what the slot held.
  void append(unsigned row);
  // Lists every source row, in source order.
  void buildIndex();
  // True; a record filter is reserved and never set.
  bool satisfiesCondition(dbrecord* record);
  // Nothing; an index order is reserved and never set.
  void sortIndex();
  // Takes view rows [row, row + count) out of this view (count cut at the end) and announces
  // them with "recordsDeleted"; nothing when `row` is out of range. Records are untouched.
  void remove(int row, int count);
  // The callback of the source's "recordsDeleted": repairs the index (see the source file for
  // the protocol) and announces the losses; answers 0.
  int recordsDeletedNotify(const NotifyMsg& message);

  // ------------------------------------------------------------------ parameters
  // add_param(name, value) for each of the other's parameters, in order.
  void addParamsFrom(kesta* other);
  void addParamsFrom(KSTViewRep* other);
  void fileName(LightweightString<wchar_t> name);

  // ---------------------------------------------------------- field specification
  // Stores a copy of `spec` and pushes a field reference per known name (tab- and
  // comma-separated) in front of the field list, then reverses the whole list; unknown names
  // are logged. Null frees the text and leaves the list.
  void fieldSpec(const char* spec);
  const char* fieldSpec() const noexcept { return field_spec_; }
  SExpr* fieldList() const noexcept { return field_list_; }
  // Appends the source's field names joined by ",".
  void identityFieldSpec(GrowString& out);
  // The source's first field named exactly `name` (case matters); -1 when none or no source.
  int dbFieldIndex(const char* name);
  // "fieldSpec: <text>\n", then "fields: <list>\n" when there is a field list.
  void asString(GrowString& out);

  // ------------------------------------------------------------------- persistence
  // Writes a database file through an atomic save: the view's parameters ("KESTA" among
  // them), the database's full column header, then, unless `headerOnly`, per view row a copy
  // of its record whose "Tag" field (when the source has one) holds the view's flag ("0" or
  // "1"). The database's records are not touched. Answers the record lines written (those
  // before a failed write); 0 when headerOnly, when the save fails, or with no source, no
  // database or an empty name. Rows that name no record are skipped.
  int saveAsText(LightweightString<wchar_t> name, bool headerOnly);
  // The same with an ASCII name, widened byte by byte.
  int saveAsText(const char* name, bool headerOnly);
  // As saveAsText, but writes the records themselves (the "Tag" field as it is), and only
  // those whose own database tag is set; the view's flags play no part. Answers the view's
  // row count (the row whose write failed, if one did), not the records written; 0 when the
  // save fails or there is nothing to save. Writing clears the written records' changed marks.
  int saveOnlyTagged(LightweightString<wchar_t> name);
  int saveOnlyTagged(const char* name);

  // ------------------------------------------------------------------------ copies
  // A new view (use count 0) on the same database and specification: chained on the same
  // base view showing all its rows, or showing this view's records; tags copied by position.
  // Null without a database.
  KSTViewRep* copy();
  // A new view (use count 0) on a private copy of the database (owned by the new view),
  // showing the same records at the same positions; null without a database.
  KSTViewRep* copyWithNewBaseView();

  // ----------------------------------------------------------------------- display
  // None of these notifies; new entries keep the tags their slots held (0 when fresh).
  // Source rows first .. first + count - 1 at view row `at` (clamped); answers count.
  int displayRecordsAt(int first, int count, int at);
  // The source's findFirst(field, value, 0) at `at`; 1 when found, else 0.
  int displayMatchAt(const char* field, const char* value, int at);
  // Every source row whose source tag is set, in source order, at `at`; answers how many.
  int displayTaggedRecordsAt(int at);
  // The database rows of `other`'s records not shown yet, at `at`; only for a view with no
  // base view and the same source as `other`. Answers how many.
  int displayAllFromAt(KSTViewRep* other, int at);
  // The records with those identifiers ("Cookie" field), from `at` on; answers how many.
  int displayRecordsAt(const CookieVec& ids, int at);
  int displayRecordsAt(const CookieSet& ids, int at);
  // Every source row in source order (announcing the removal of the old rows).
  void displayAllRecords();
  // displayAllRecords, then, when the source has a "Tag" field, each row's flag from the
  // source's tag.
  void displayAllRecordsWithBaseTagStatus();
  // displayAllRecords, then, when the source has a "Tag" field, each flag from its number.
  void setupViewTagsFromKestaTagField();

  // ------------------------------------------------------------ records and rows
  // Inserts `count` blank records into the source before the record of view row `at`
  // (appends at the end) and shows them; not announced to other views.
  void insertBlankRecords(int at, int count);
  // Deletes the records of view rows [row, row + count) from the database, through the
  // chain, in runs of consecutive source rows; answers the rows asked for.
  int deleteRecords(int row, int count);
  // deleteRecords for every run of tagged rows; answers how many rows.
  int deleteTagged();
  // Takes view rows out of this view and every view below it, without deleting records;
  // answers the rows asked for.
  int removeRecordsFromBaseView(int row, int count);
  // removeRecordsFromBaseView for every run of rows passing `test`; answers how many.
  int removeSome(bool (KSTViewRep::*test)(int));
  int removeTagged();
  int removeNonTagged();

  // -------------------------------------------------------------------------- tags
  // The flag of view row `row`; false out of range.
  bool tag(int row);
  // True when the flag is clear, and out of range.
  bool notTagged(int row);
  void tagAll(bool on);
  void invertAllTags();
  int countTags() const;
  // Flags the rows whose source record matches the source's query (non-zero match_record of
  // the mapped row); clears the others unless `keep`. Answers the matches.
  int tagMatches(int keep);
  // Tags each row whose `field` equals (ignoring case) that of the first row of its run of
  // equal values; answers how many were tagged.
  int tagDuplicatesOrdered(int field);
  // Tags every row whose `field` value occurs on another row too, except one per value;
  // answers how many. REQUIRES: the view is held (it is used and released meanwhile).
  int tagDuplicates(int field);
  // The source's tag of each mapped row becomes this row's flag.
  void tagBaseFromTags();
  // A new view (use count 0) chained on this one showing its tagged rows; null without a
  // database.
  KSTViewRep* newTagSubview();

  // Checks the invariants above (index structure, count within capacity, dangling entries
  // reading as missing records); on failure answers false and says why.
  bool checkInvariants(std::string* why) const;

  // ------------------------------------------------------------------ record source
  // saveAsText(file name, false).
  int save_text() override;
  void insert_records(unsigned at, unsigned count) override;
  void delete_records(unsigned first, unsigned count) override;
  // Removes the tagged rows from the views only; the records stay. Answers 0.
  unsigned delete_tagged_records() override;
  unsigned get_num_records() const override;
  unsigned get_num_fields() const override;
  Zr::Ptr<dbrecord> get_record(unsigned row) const override;
  // The database's, not the base view's.
  Zr::Ptr<dbrecord> make_dummy_record() override;
  LightweightString<char> getField(unsigned row, unsigned field) const override;
  const char* get_fieldname(unsigned field) const override;
  unsigned get_fieldsize(unsigned field) const override;
  DBFieldTypes::eType get_field_type(unsigned field) const override;
  bool set_fieldtype(unsigned field, DBFieldTypes::eType type) override;
  DBFieldTypes::eType get_fieldtype(unsigned field) const override;
  unsigned get_fieldnum(const LightweightString<char>& name) const override;
  bool set_fieldname(unsigned field, const char* name) override;
  void set_filename(LightweightString<wchar_t> name) override;
  LightweightString<wchar_t> get_filename() const override;
  void set_sortfield(int field) override;
  void set_sortfields(int* fields) override;
  // Sorts the index on the database's sort fields: `field` goes to the source's
  // sortPrepare as its first argument and, by its sign, chooses descending or ascending.
  void sort(int field, int order) override;
  void set_tag(unsigned row, int on) override;
  void invert_tag(unsigned row) override;
  void set_all_tags(int on) override;
  void invert_all_tags() override;
  // removeNonTagged(), whatever `on` is.
  void set_show_tags_only(int on) override;
  // Always 0.
  int get_show_tags_only() override;
  int get_tag(unsigned row) override;
  int get_num_tags() override;
  void set_query(dbrecord* query) override;
  // tagMatches(0), whatever `keepTags` is.
  int tag_matching_records(int keepTags) override;
  // tagDuplicates, then invertAllTags; answers get_num_tags(). REQUIRES: the view is held.
  int tag_all_different(int field) override;
  // The setters and readers below act on the source's mapped row; false (0) without a
  // source or for a row out of range.
  bool set_field(unsigned row, const Cookie& id) override;
  int set_field(unsigned row, unsigned field, const char* value) override;
  bool set_field(unsigned row, unsigned field, int value) override;
  bool set_field(unsigned row, unsigned field, double value) override;
  bool set_field(unsigned row, unsigned field, bool value) override;
  bool in_field(unsigned row, unsigned field, char* dst, int len) const override;
  bool in_field(unsigned row, unsigned field, int& value) const override;
  bool in_field(unsigned row, unsigned field, double& value) const override;
  bool in_field(unsigned row, unsigned field, bool& value) const override;
  // insertBlankRecords at the end; answers the row count before.
  unsigned add_records(int count) override;
  // The source's findFirst(field, value, 0): the whole value, and a source row; -1 without
  // a source. Callers rely on the third argument being ignored.
  int findFirst(const char* field, const char* value, int length) override;
  void sortPrepare(int direction, int caseInsensitive) override;
  // The source's match_record of `row` as given (a view row, not mapped).
  int match_record(int row) const override;
  int get_valid() const override;

 private:
  bool inRange(int row) const noexcept { return row >= 0 && row < index_.size(); }
  int clampPosition(int at) const noexcept;
  int runFrom(int row, int n) const;
  int passRuns(int row, int count, bool deleting);
  int forEachRun(bool (KSTViewRep::*test)(int), bool deleting);
  void setIdentity();
  // What the destructor does; also undoes a constructor that failed, whose destructor never runs.
  void teardown() noexcept;
  // Deletes the field list, condition and sort order this view owns and lets its guards go.
  void drop_owned() noexcept;

  uint32_t uses_ = 0;
  KSTViewRep* base_ = nullptr;
  kesta* db_ = nullptr;
  ViewIndex index_;
  char* field_spec_ = nullptr;
  LightweightString<wchar_t> file_name_;
  SExpr* field_list_ = nullptr;
  SExpr* condition_ = nullptr;   // reserved: a record filter; never set
  SExpr* sort_order_ = nullptr;  // reserved: an index order; never set
  Zr::Ptr<Zr::Guard> db_guard_;
  Zr::Ptr<Zr::Guard> base_guard_;
  // The database copy that copyWithNewBaseView made for this view.
  Zr::Ptr<kesta> private_db_;
};

#endif
