// KSTViewRep: the record-source operations, forwarded to the source (the base view when set,
// else the database), mapped to source rows where the table of the interface says so.

#include "view/KSTViewRep.h"

void KSTViewRep::insert_records(unsigned at, unsigned count) {
  insertBlankRecords(static_cast<int>(at), static_cast<int>(count));
}

void KSTViewRep::delete_records(unsigned first, unsigned count) {
  deleteRecords(static_cast<int>(first), static_cast<int>(count));
}

unsigned KSTViewRep::delete_tagged_records() {
  removeTagged();
  return 0;
}

unsigned KSTViewRep::get_num_records() const { return static_cast<unsigned>(index_.size()); }

unsigned KSTViewRep::get_num_fields() const {
  const iKST* source = db();
  return source ? source->get_num_fields() : 0;
}

Zr::Ptr<dbrecord> KSTViewRep::get_record(unsigned row) const {
  const iKST* source = db();
  const int r = static_cast<int>(row);
  if (!source || !inRange(r)) return {};
  return source->get_record(index_.row(r));
}

Zr::Ptr<dbrecord> KSTViewRep::make_dummy_record() { return db_ ? db_->make_dummy_record() : Zr::Ptr<dbrecord>(); }

LightweightString<char> KSTViewRep::getField(unsigned row, unsigned field) const {
  const dbrecord* record = (*this)[static_cast<int>(row)];
  if (!record) return {};
  return record->fieldValue(static_cast<unsigned short>(field));
}

const char* KSTViewRep::get_fieldname(unsigned field) const {
  const iKST* source = db();
  return source ? source->get_fieldname(field) : "";
}

unsigned KSTViewRep::get_fieldsize(unsigned field) const {
  const iKST* source = db();
  return source ? source->get_fieldsize(field) : 0;
}

DBFieldTypes::eType KSTViewRep::get_field_type(unsigned field) const {
  const iKST* source = db();
  return source ? source->get_field_type(field) : DBFieldTypes::kNone;
}

bool KSTViewRep::set_fieldtype(unsigned field, DBFieldTypes::eType type) {
  iKST* source = db();
  return source ? source->set_fieldtype(field, type) : false;
}

DBFieldTypes::eType KSTViewRep::get_fieldtype(unsigned field) const { return get_field_type(field); }

unsigned KSTViewRep::get_fieldnum(const LightweightString<char>& name) const {
  const iKST* source = db();
  return source ? source->get_fieldnum(name) : 0;
}

bool KSTViewRep::set_fieldname(unsigned field, const char* name) {
  iKST* source = db();
  return source ? source->set_fieldname(field, name) : false;
}

void KSTViewRep::set_filename(LightweightString<wchar_t> name) { fileName(name); }

LightweightString<wchar_t> KSTViewRep::get_filename() const { return file_name_; }

void KSTViewRep::set_sortfield(int field) {
  if (iKST* source = db()) source->set_sortfield(field);
}

void KSTViewRep::set_sortfields(int* fields) {
  if (iKST* source = db()) source->set_sortfields(fields);
}

void KSTViewRep::set_query(dbrecord* query) {
  if (iKST* source = db()) source->set_query(query);
}

// The row-addressed setters and readers reach the source's mapped row. A row outside the view
// has no mapping and answers false.
bool KSTViewRep::set_field(unsigned row, const Cookie& id) {
  iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->set_field(index_.row(r), id) : false;
}

int KSTViewRep::set_field(unsigned row, unsigned field, const char* value) {
  iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->set_field(index_.row(r), field, value) : 0;
}

bool KSTViewRep::set_field(unsigned row, unsigned field, int value) {
  iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->set_field(index_.row(r), field, value) : false;
}

bool KSTViewRep::set_field(unsigned row, unsigned field, double value) {
  iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->set_field(index_.row(r), field, value) : false;
}

bool KSTViewRep::set_field(unsigned row, unsigned field, bool value) {
  iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->set_field(index_.row(r), field, value) : false;
}

bool KSTViewRep::in_field(unsigned row, unsigned field, char* dst, int len) const {
  const iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->in_field(index_.row(r), field, dst, len) : false;
}

bool KSTViewRep::in_field(unsigned row, unsigned field, int& value) const {
  const iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->in_field(index_.row(r), field, value) : false;
}

bool KSTViewRep::in_field(unsigned row, unsigned field, double& value) const {
  const iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->in_field(index_.row(r), field, value) : false;
}

bool KSTViewRep::in_field(unsigned row, unsigned field, bool& value) const {
  const iKST* source = db();
  const int r = static_cast<int>(row);
  return source && inRange(r) ? source->in_field(index_.row(r), field, value) : false;
}

unsigned KSTViewRep::add_records(int count) {
  const unsigned before = static_cast<unsigned>(index_.size());
  insertBlankRecords(index_.size(), count);
  return before;
}

int KSTViewRep::findFirst(const char* field, const char* value, int) {
  iKST* source = db();
  return source ? source->findFirst(field, value, 0) : -1;
}

void KSTViewRep::sortPrepare(int direction, int caseInsensitive) {
  if (iKST* source = db()) source->sortPrepare(direction, caseInsensitive);
}

int KSTViewRep::match_record(int row) const {
  const iKST* source = db();
  return source ? source->match_record(row) : 0;
}

int KSTViewRep::get_valid() const {
  const iKST* source = db();
  return source && source->get_valid() != 0 ? 1 : 0;
}
