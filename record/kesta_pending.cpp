// TEMPORARY: placeholders for the tag, sort, merge and search operations so that the library
// links while they are written. Each is removed as its real definition lands in
// kesta_tags.cpp, kesta_sort.cpp, kesta_merge.cpp or search/kesta_query.cpp; this file is
// deleted when it is empty.

#include "record/kesta.h"

void kesta::set_tag(unsigned, int) {}
void kesta::invert_tag(unsigned) {}
int kesta::get_tag(unsigned) { return -1; }
void kesta::set_all_tags(int) {}
void kesta::invert_all_tags() {}
int kesta::get_num_tags() { return 0; }
unsigned kesta::delete_tagged_records() { return 0; }
void kesta::set_show_tags_only(int) {}
unsigned kesta::index_tags() { return 0; }
unsigned kesta::get_new_row(unsigned r) { return r; }
unsigned kesta::get_raw_row(unsigned r) { return r; }

void kesta::set_sortfield(int) {}
void kesta::set_sortfields(int*) {}
int kesta::getSortFieldIdx() const { return 0; }
void kesta::sortPrepare(int, int) {}
void kesta::sort(int, int) {}
int dbr_cmp(void*, void*) { return 0; }
int dbr_backcmp(void*, void*) { return 0; }
int* cmp_fields = nullptr;

int kesta::add_kesta(kesta*) { return -1; }
int kesta::merge_all_matching(kesta*) { return 0; }

void kesta::set_query(dbrecord*) {}
void kesta::setQuery(const std::vector<TextSearch::Criteria>&) {}
bool kesta::matchField(const dbrecord*, unsigned short, const TextSearch::Criteria&) const { return false; }
bool kesta::match_field(const dbrecord*, int) const { return false; }
bool kesta::found_in_special_label_field(const dbrecord*, int) const { return false; }
int kesta::match_record(const Zr::Ptr<dbrecord>&) const { return -1; }
int kesta::match_record(int) const { return -1; }
int kesta::tag_matching_records(int) { return 0; }
int kesta::tag_all_different(int) { return 0; }
