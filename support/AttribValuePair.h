#ifndef KESTA_SUPPORT_ATTRIBVALUEPAIR_H
#define KESTA_SUPPORT_ATTRIBVALUEPAIR_H
// Zr::AttribValuePair: a named value that prints as name, separator, value ("Mode=x").
//
// Thread safety: a value type.

#include "support/LightweightString.h"

namespace Zr {

class AttribValuePair {
 public:
  AttribValuePair() = default;
  AttribValuePair(const LightweightString<char>& name, const LightweightString<char>& value, char separator)
      : name_(name), value_(value), separator_(separator) {}
  AttribValuePair(const AttribValuePair&) = default;
  AttribValuePair& operator=(const AttribValuePair&) = default;

  const LightweightString<char>& name() const noexcept { return name_; }
  const LightweightString<char>& value() const noexcept { return value_; }
  char separator() const noexcept { return separator_; }
  void setValue(const LightweightString<char>& value) { value_ = value; }

  LightweightString<char> asString() const {
    LightweightString<char> out(name_);
    out += separator_;
    out += value_;
    return out;
  }

 private:
  LightweightString<char> name_;
  LightweightString<char> value_;
  char separator_ = '=';
};

}  // namespace Zr

#endif
