#ifndef KESTA_RECORD_IKST_H
#define KESTA_RECORD_IKST_H
// iKST: the record-source interface. The database (kesta) and the view (KSTViewRep) both
// implement it, so every consumer of a database (field maps, searches, savers) can work on a
// view instead. The slots below are in their fixed order; do not reorder them.
//
// Conventions for every implementation: not found is -1 (all bits set through unsigned
// results); a missing record is a null pointer; out-of-range rows and columns never fault.

#include "record/DBFieldTypes.h"
#include "record/dbrecord.h"
#include "support/Cookie.h"

class KESTA_API iKST : public iObject {
 public:
  ~iKST() override;

  virtual int save_text() = 0;
  virtual void insert_records(unsigned at, unsigned count) = 0;
  virtual void delete_records(unsigned first, unsigned count) = 0;
  virtual unsigned delete_tagged_records() = 0;
  virtual unsigned get_num_records() const = 0;
  virtual unsigned get_num_fields() const = 0;
  virtual Zr::Ptr<dbrecord> get_record(unsigned row) const = 0;
  virtual Zr::Ptr<dbrecord> make_dummy_record() = 0;
  virtual LightweightString<char> getField(unsigned row, unsigned field) const = 0;
  virtual const char* get_fieldname(unsigned field) const = 0;
  virtual unsigned get_fieldsize(unsigned field) const = 0;
  virtual DBFieldTypes::eType get_field_type(unsigned field) const = 0;
  virtual bool set_fieldtype(unsigned field, DBFieldTypes::eType type) = 0;
  virtual DBFieldTypes::eType get_fieldtype(unsigned field) const = 0;
  virtual unsigned get_fieldnum(const LightweightString<char>& name) const = 0;
  virtual bool set_fieldname(unsigned field, const char* name) = 0;
  virtual void set_filename(LightweightString<wchar_t> name) = 0;
  virtual LightweightString<wchar_t> get_filename() const = 0;
  virtual void set_sortfield(int field) = 0;
  virtual void set_sortfields(int* fields) = 0;
  virtual void sort(int direction, int caseInsensitive) = 0;
  virtual void set_tag(unsigned row, int value) = 0;
  virtual void invert_tag(unsigned row) = 0;
  virtual void set_all_tags(int value) = 0;
  virtual void invert_all_tags() = 0;
  virtual void set_show_tags_only(int on) = 0;
  virtual int get_show_tags_only() = 0;
  virtual int get_tag(unsigned row) = 0;
  virtual int get_num_tags() = 0;
  virtual void set_query(dbrecord* query) = 0;
  virtual int tag_matching_records(int keepTags) = 0;
  virtual int tag_all_different(int field) = 0;
  virtual bool set_field(unsigned row, const Cookie& id) = 0;
  virtual int set_field(unsigned row, unsigned field, const char* value) = 0;
  virtual bool set_field(unsigned row, unsigned field, int value) = 0;
  virtual bool set_field(unsigned row, unsigned field, double value) = 0;
  virtual bool set_field(unsigned row, unsigned field, bool value) = 0;
  virtual bool in_field(unsigned row, unsigned field, char* dst, int len) const = 0;
  virtual bool in_field(unsigned row, unsigned field, int& value) const = 0;
  virtual bool in_field(unsigned row, unsigned field, double& value) const = 0;
  virtual bool in_field(unsigned row, unsigned field, bool& value) const = 0;
  virtual unsigned add_records(int count) = 0;
  virtual int add_param(const LightweightString<char>& key, const LightweightString<char>& value) = 0;
  virtual void set_param_val(const char* key, const char* value) = 0;
  virtual const char* get_param_val(const char* key) const = 0;
  virtual int findFirst(const char* field, const char* value, int length) = 0;
  virtual void sortPrepare(int direction, int caseInsensitive) = 0;
  virtual int match_record(int row) const = 0;
  virtual int baseIndex(int row) = 0;
  virtual int get_valid() const = 0;
};

#endif
