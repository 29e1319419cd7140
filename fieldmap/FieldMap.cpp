#include "fieldmap/FieldMap.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "view/KSTViewRep.h"

namespace {
const char kFieldMapParam[] = "V5_FIELD_MAP";
}  // namespace

FieldMap::FieldMap() = default;

FieldMap::FieldMap(const KSTView& view) { setSourceDb(view); }

FieldMap::FieldMap(kesta& db) {
  KSTView source(new KSTViewRep(&db));
  setSourceDb(source);
}

FieldMap::FieldMap(const FieldMap& other) = default;

FieldMap::~FieldMap() = default;

FieldMap& FieldMap::operator=(const FieldMap& other) {
  source_ = other.source_;
  if (this != &other) {
    names_ = other.names_;
    visible_ = other.visible_;
  }
  return *this;
}

int FieldMap::getFieldIdx(const LightweightString<char>& name) const {
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (names_[i].icompare(name.c_str()) == 0) return static_cast<int>(i);
  }
  return -1;
}

bool FieldMap::containsField(const LightweightString<char>& name) const { return getFieldIdx(name) != -1; }

bool FieldMap::isVisible(int i) const {
  if (i < 0 || static_cast<std::size_t>(i) >= visible_.size()) return false;
  return visible_[i];
}

bool FieldMap::isVisible(const LightweightString<char>& name) const { return isVisible(getFieldIdx(name)); }

int FieldMap::numVisible() const {
  int count = 0;
  for (std::size_t i = 0; i < names_.size() && i < visible_.size(); ++i) count += visible_[i] ? 1 : 0;
  return count;
}

int FieldMap::getVisibleFieldIndex(int n) const {
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (!visible_[i]) continue;
    if (n-- == 0) return source_ ? static_cast<int>(source_->get_fieldnum(names_[i])) : -1;
  }
  return -1;
}

LightweightString<char> FieldMap::getName(int i) const {
  if (i < 0 || static_cast<std::size_t>(i) >= names_.size()) return {};
  return names_[i];
}

void FieldMap::setVisible(int i, bool on) {
  if (i >= 0 && static_cast<std::size_t>(i) < names_.size()) visible_[i] = on;
}

void FieldMap::invertVisible(int i) {
  if (i >= 0 && static_cast<std::size_t>(i) < names_.size()) visible_[i] = !visible_[i];
}

void FieldMap::setName(int i, const LightweightString<char>& name) {
  if (i >= 0 && static_cast<std::size_t>(i) < names_.size()) names_[i] = name;
}

void FieldMap::set(int i, const LightweightString<char>& name, bool visible) {
  if (i >= 0 && static_cast<std::size_t>(i) < names_.size()) {
    names_[i] = name;
    visible_[i] = visible;
  }
}

void FieldMap::swap(int i, int j) {
  names_[i].swap(names_[j]);
  bool flag = visible_[i];
  visible_[i] = visible_[j];
  visible_[j] = flag;
}

bool FieldMap::remove(const LightweightString<char>& name) {
  int i = getFieldIdx(name);
  if (i == -1) return false;
  names_.erase(names_.begin() + i);
  visible_.erase(visible_.begin() + i);
  return true;
}

void FieldMap::append(const LightweightString<char>& name, bool visible) {
  if (containsField(name)) return;
  names_.push_back(name);
  visible_.push_back(visible);
}

void FieldMap::clear() {
  names_.clear();
  visible_.clear();
}

void FieldMap::setSourceDb(const KSTView& view) {
  source_ = view;
  LightweightString<char> text(source_ ? source_->get_param_val(kFieldMapParam) : "");
  if (text.empty() && !names_.empty()) return;

  // Numbers are read three characters at a time, sign included: that is the stored format's
  // limit, and "1234" reads as column 123.
  const char* s = text.c_str();
  std::size_t length = text.size();
  for (std::size_t p = 0; p < length;) {
    char piece[4] = {0, 0, 0, 0};
    std::strncpy(piece, s + p, 3);
    int n = 0;
    if (std::sscanf(piece, "%d", &n) != 1) break;
    if (n != 0) {
      unsigned field = static_cast<unsigned>(std::abs(n) - 1);
      const char* name = source_ ? source_->get_fieldname(field) : "";
      append(LightweightString<char>(name ? name : ""), n > 0);
    }
    std::size_t start = p;
    while (p < length && (s[p] == '-' || (s[p] >= '0' && s[p] <= '9'))) ++p;
    if (p < length && s[p] == ' ') ++p;
    if (p == start) break;  // a "+" or other text the writer never produces: stop, don't spin
  }
  if (!names_.empty()) return;

  for (unsigned i = 0; source_ && i < source_->get_num_fields(); ++i) {
    const char* name = source_->get_fieldname(i);
    append(LightweightString<char>(name ? name : ""), true);
  }
}

LightweightString<char> FieldMap::asString() const {
  LightweightString<char> text;
  for (std::size_t i = 0; i < names_.size(); ++i) {
    if (i > 0) text += ' ';
    if (!visible_[i]) text += '-';
    int k = source_ ? static_cast<int>(source_->get_fieldnum(names_[i])) : static_cast<int>(i);
    text += k + 1;
  }
  return text;
}
