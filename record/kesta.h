#ifndef KESTA_RECORD_KESTA_H
#define KESTA_RECORD_KESTA_H
// kesta: the logging database. A list of typed, named columns, a list of records whose fields
// follow those columns, named parameters, and the text file it is loaded from and saved to.
//
//   Zr::Ptr<kesta> db(new kesta(LightweightString<wchar_t>(L"day1.kst"), 0x7fffffff, false));
//   unsigned reel = db->get_fieldnum("Reel");
//   db->set_sortfield(reel);
//   db->sort(1, 0);
//   db->save_text();
//
// The database calls its own iKST operations through the interface (get_num_records,
// get_record, getField, set_tag, delete_records ...), so an override in a derived class
// changes the behaviour of the others; loops re-read get_num_records() at every row.
//
// While the database shows only its tagged records, its row numbers address the tagged index,
// and structural operations refuse: insert_records and delete_records do nothing;
// add_records, delete_tagged_records and add_kesta answer -1.
//
// Deletions are announced through the Notifier base with the message type "recordsDeleted";
// its text lists the deleted rows, numbered as before the deletion, each followed by a space.
//
// The definition is split by concern: kesta.cpp (construction, columns, parameters, typed
// access), kesta_records.cpp, kesta_file.cpp, kesta_tags.cpp, kesta_sort.cpp,
// kesta_merge.cpp, and search/kesta_query.cpp.
//
// Thread safety: none beyond atomic counts and the notifier's listener list. Callers
// serialise changes; reading while nobody writes is safe. Only one sort may run at a time in
// a process (the comparison keys are process-wide).

#include <functional>
#include <map>
#include <vector>

#include "record/KSTBase.h"
#include "record/RecordList.h"
#include "support/Notifier.h"
#include "support/TextSearch.h"

// Orders column names ignoring case (strcasecmp).
struct KestaNameLess {
  bool operator()(const LightweightString<char>& a, const LightweightString<char>& b) const noexcept {
    return a.icompare(b.c_str()) < 0;
  }
};

class KESTA_API kesta : public KSTBase, public Notifier {
 public:
  using FieldNameIndex = std::map<LightweightString<char>, unsigned, KestaNameLess>;
  using IdentifierIndex = std::map<Cookie, unsigned, CookieLess>;

  // ------------------------------------------------------------------ construction
  kesta();                                   // empty and invalid
  explicit kesta(const DBFieldDesc* descs);  // up to the first descriptor of type 0
  explicit kesta(const std::vector<DBFieldDesc>& descs);
  // Copies the columns and (when copyRecords) copies of other's visible records; shares
  // other's parameter list.
  kesta(const kesta& other, int copyRecords);
  // Loads the named file (see loadFromFile).
  kesta(const LightweightString<wchar_t>& fileName, int maxRecords, bool strict);
  ~kesta() override;

  void init();
  void free();
  void post_init();
  void setFields(const std::vector<DBFieldDesc>& descs);

  // ----------------------------------------------------------------------- columns
  // The column's number; an existing column of that name (ignoring case) is answered as is.
  unsigned addField(const DBFieldDesc& desc);
  unsigned get_num_fields() const override;
  const char* get_fieldname(unsigned field) const override;                   // "" out of range
  unsigned get_fieldnum(const LightweightString<char>& name) const override;  // -1 when none
  const FieldNameIndex& getFieldNameIndexMap() const;
  bool set_fieldname(unsigned field, const char* name) override;
  unsigned get_fieldsize(unsigned field) const override;
  // Every column's get_fieldsize, the records read in one pass rather than once a column.
  std::vector<unsigned> get_fieldsizes();
  DBFieldTypes::eType get_field_type(unsigned field) const override;  // 0 out of range
  DBFieldTypes::eType get_fieldtype(unsigned field) const override;
  bool set_fieldtype(unsigned field, DBFieldTypes::eType type) override;  // 0 stores 97
  bool isSpecialLabelField(unsigned long field) const;
  const std::vector<DBFieldDesc>& fields() const noexcept { return fields_; }

  static LightweightString<char> strip_char_from_string(char c, const char* s);
  static DBFieldTypes::eType fieldTypeFromString(const LightweightString<char>& token);
  // The header token of a type, with its quotes: "\"timecode\"", or "\"B\"" for codes
  // without a token (and for "char").
  static LightweightString<char> fieldTypeToString(DBFieldTypes::eType type);
  static int getMinFieldSize(const char* name);

  // -------------------------------------------------------------------- parameters
  // Adds the revision pair "KESTA" = "Rev 1" first when the list is empty.
  int add_param(const LightweightString<char>& key, const LightweightString<char>& value) override;

  // --------------------------------------------------------------------- accessors
  int get_valid() const override { return valid_; }
  int get_show_tags_only() override { return show_tags_only_; }
  int baseIndex(int row) override { return row; }
  void set_filename(LightweightString<wchar_t> name) override;
  LightweightString<wchar_t> get_filename() const override { return file_name_; }
  int get_revision() const noexcept { return revision_; }
  int changed() const noexcept { return changed_; }

  bool set_field(unsigned row, unsigned field, int value) override;
  bool set_field(unsigned row, unsigned field, double value) override;
  bool set_field(unsigned row, unsigned field, bool value) override;
  bool in_field(unsigned row, unsigned field, char* dst, int len) const override;
  bool in_field(unsigned row, unsigned field, int& value) const override;
  bool in_field(unsigned row, unsigned field, double& value) const override;
  bool in_field(unsigned row, unsigned field, bool& value) const override;

  // ------------------------------------------------------- records and identity
  Zr::Ptr<dbrecord> newRecord();
  Zr::Ptr<dbrecord> make_dummy_record() override;
  unsigned get_num_records() const override;
  Zr::Ptr<dbrecord> get_record(unsigned row) const override;
  LightweightString<char> getField(unsigned row, unsigned field) const override;
  void insert_records(unsigned at, unsigned count) override;
  unsigned add_records(int count) override;
  void delete_records(unsigned first, unsigned count) override;
  bool setField(unsigned row, unsigned field, const LightweightString<char>& value);
  int set_field(unsigned row, unsigned field, const char* value) override;
  bool set_field(unsigned row, const Cookie& id) override;
  Zr::Ptr<dbrecord> addRecord(const Cookie& id);
  unsigned getRowIndexByID(const Cookie& id) const;
  Zr::Ptr<dbrecord> get_record(const Cookie& id) const;
  int findFirst(const char* field, const char* value, int length) override;
  void removeField(const LightweightString<char>& name);
  void clear_changed();

  // ------------------------------------------------------------------ file format
  int save_text() override;
  int save_text_without_header();
  void save_params(TextFile& file);
  void save_column_header(TextFile& file, bool namesOnly);
  void loadFromFile(int maxRecords, bool strict);
  void loadFromFile(const LightweightString<wchar_t>& fileName, int maxRecords, bool strict);
  // With a filter set, a load of a log file keeps only the records for which keep(record)
  // answers true; the others are let go as soon as they are read, so that a search of a big
  // log holds only what it finds. The record given belongs to this database (its fields and
  // the query can be read through it) but is not in the record list yet. records_dropped()
  // counts the records the last load let go; a record limit counts them too. Comma-separated
  // input is read whole.
  using LoadFilter = std::function<bool(const Zr::Ptr<dbrecord>&)>;
  void set_load_filter(LoadFilter keep) { load_filter_ = std::move(keep); }
  unsigned records_dropped() const noexcept { return records_dropped_; }
  void read_params(TextFile& file, dbrecord* line);
  int add_text(TextFile& file, int skipFirst, int maxRecords);
  int load_text(int maxRecords);

  // ------------------------------------------------------------------------- tags
  void set_tag(unsigned row, int value) override;
  void invert_tag(unsigned row) override;
  int get_tag(unsigned row) override;
  void set_all_tags(int value) override;
  void invert_all_tags() override;
  int get_num_tags() override;
  unsigned delete_tagged_records() override;
  void set_show_tags_only(int on) override;
  unsigned index_tags();
  unsigned get_new_row(unsigned rawRow);
  unsigned get_raw_row(unsigned row);

  // ---------------------------------------------------------------------- sorting
  void set_sortfield(int field) override;
  void set_sortfields(int* fields) override;
  int getSortFieldIdx() const;
  void sortPrepare(int direction, int caseInsensitive) override;
  void sort(int direction, int caseInsensitive) override;

  // ---------------------------------------------------------------------- merging
  int add_kesta(kesta* other);
  int merge_all_matching(kesta* other);

  // ----------------------------------------------------------------------- search
  void set_query(dbrecord* query) override;
  void setQuery(const std::vector<TextSearch::Criteria>& criteria);
  bool matchField(const dbrecord* record, unsigned short field, const TextSearch::Criteria& criteria) const;
  bool match_field(const dbrecord* record, int field) const;
  bool found_in_special_label_field(const dbrecord* record, int field) const;
  int match_record(const Zr::Ptr<dbrecord>& record) const;
  int match_record(int row) const override;
  // The test tag_matching_records applies to each record, worked out once from the query and
  // the columns; valid while both stay as they are and the database lives.
  std::function<bool(const dbrecord&)> query_matcher() const;
  int tag_matching_records(int keepTags) override;
  int tag_all_different(int field) override;

 protected:
  // The full record list and the tagged index, for derived classes and the concern files.
  RecordList& records() noexcept { return records_; }
  const RecordList& records() const noexcept { return records_; }

 private:
  friend class dbrecord;  // marks the database changed
  friend class KestaDebug;
  class LineSource;  // the lines a load reads: a whole file, or one streamed in blocks
  // True for a database of this very class (nothing overridden) showing all its records:
  // then row r is records_[r], and an operation may reach it without the virtual calls.
  bool rows_are_records() const;
  // records_[row] without a count taken; null past the end.
  dbrecord* record_at(unsigned row) const { return row < records_.size() ? records_[row].get() : nullptr; }
  // merge_all_matching's appending, for two databases whose rows are their records.
  void merge_records(const kesta& other, const std::vector<int>& source_field, unsigned count);
  int tag_all_different_records(unsigned field);
  // A column the query can fail, worked out once for a pass over many records: its criteria,
  // or the start..end pair (column numbers, 0xFFFFFFFF where missing) of a special column.
  struct QueryTest {
    unsigned short field;
    bool range;
    unsigned start_field;
    unsigned end_field;
  };
  std::vector<QueryTest> query_tests() const;
  // match_record's answer for a record, from query_tests' list. REQUIRES: record not null.
  bool passes(const dbrecord& record, const std::vector<QueryTest>& tests) const;

  void read_params_from(LineSource& lines, dbrecord* line);
  // With `unmarked`, each record kept has its changed mark cleared as it is added, while it is
  // at hand, rather than in a pass of its own.
  int add_lines(LineSource& lines, int skipFirst, int maxRecords, const LoadFilter* keep = nullptr,
                bool unmarked = false);
  // Clears the changed marks of the first `rows` records and of the database.
  void clear_marks(std::size_t rows);
  bool load_log(const LightweightString<wchar_t>& name, int maxRecords, bool strict);

  std::vector<DBFieldDesc> fields_;
  RecordList records_;
  std::vector<Zr::Ptr<dbrecord>> tagged_;
  std::vector<uint16_t> sort_fields_;
  mutable IdentifierIndex identifier_index_;
  mutable FieldNameIndex field_name_index_;
  std::vector<bool> special_label_flags_;
  LightweightString<wchar_t> file_name_;
  int32_t show_tags_only_ = 0;
  int32_t changed_ = 0;
  int32_t valid_ = 0;
  int32_t revision_ = 1;
  std::vector<TextSearch::Criteria> query_;
  int32_t match_options_ = 0;
  // While get_fieldsizes asks get_fieldsize: every column's widest value, read in one pass.
  const std::vector<unsigned>* field_sizes_ = nullptr;
  LoadFilter load_filter_;
  unsigned records_dropped_ = 0;
};

// The build's version, four dot-separated numbers.
KESTA_API const char* kestaDllVersionStr();

// Sorting comparators and their process-wide key list (see kesta_sort.cpp). Each argument
// points to one Zr::Ptr<dbrecord> of a record list.
KESTA_API int dbr_cmp(void* a, void* b);
KESTA_API int dbr_backcmp(void* a, void* b);
extern KESTA_API int* cmp_fields;

#endif
