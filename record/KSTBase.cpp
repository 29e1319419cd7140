// KSTBase: the named parameters of a record source, and the out-of-line destructor of the
// record-source interface.

#include "record/KSTBase.h"

#include <string>

iKST::~iKST() = default;

KSTBase::KSTBase() : params_(new ParamList()) {}

KSTBase::~KSTBase() = default;

int KSTBase::findParamIndex(const LightweightString<char>& key) const {
  const ParamList& list = *params_;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (list[i].name().icompare(key.c_str()) == 0) return static_cast<int>(i);
  }
  return -1;
}

int KSTBase::add_param(const LightweightString<char>& key, const LightweightString<char>& value) {
  if (key.empty()) return -1;
  const int index = findParamIndex(key);
  if (index < 0) {
    append_param(key, value);
    return 0;
  }
  Zr::AttribValuePair& pair = (*params_)[static_cast<std::size_t>(index)];
  if (!(pair.value() == value)) pair.setValue(value);
  return 0;
}

void KSTBase::set_param_val(const char* key, const char* value) {
  add_param(LightweightString<char>(key), LightweightString<char>(value));
}

const char* KSTBase::get_param_val(const char* key) const {
  const int index = findParamIndex(LightweightString<char>(key));
  if (index < 0) return "";
  return (*params_)[static_cast<std::size_t>(index)].value().c_str();
}

LightweightString<char> KSTBase::getParamVal(const char* key) const {
  const int index = findParamIndex(LightweightString<char>(key));
  if (index < 0) return LightweightString<char>();
  return (*params_)[static_cast<std::size_t>(index)].value();
}

void KSTBase::append_param(const LightweightString<char>& key, const LightweightString<char>& value) {
  params_->push_back(Zr::AttribValuePair(key, value, '='));
}

// In place: databases sharing the list see it emptied too.
void KSTBase::empty_params() { params_->clear(); }

void KSTBase::share_params(const KSTBase& other) { params_ = other.params_; }

void KSTBase::write_param_lines(TextFile& file) const {
  std::string line;
  for (const Zr::AttribValuePair& pair : params()) {
    line.assign(1, '"');
    line.append(pair.name().view());
    line += ':';
    line.append(pair.value().view());
    line += '"';
    file.appendLine(std::string_view(line));
  }
}
