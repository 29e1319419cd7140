#ifndef KESTA_RECORD_FIELDTEXT_H
#define KESTA_RECORD_FIELDTEXT_H
// Field bytes read the way the C-string calls of the record code read them. Internal to the
// library.

#include <string_view>

#include "record/CharClass.h"

// Up to the field's first zero byte, should it hold one: where strcmp and its kin stop.
inline std::string_view c_text(std::string_view field) noexcept {
  // Most keys are a few bytes (reels, time codes), where a call to memchr costs more than the
  // look itself.
  if (field.size() > 32) return field.substr(0, field.find('\0'));
  std::size_t i = 0;
  while (i < field.size() && field[i] != '\0') ++i;
  return field.substr(0, i);
}

// What a store of `text` as a C string keeps (dbrecord::set_field, trimming): its c_text
// without the leading blanks.
inline std::string_view stored_text(std::string_view text) noexcept {
  text = c_text(text);
  while (!text.empty() && char_class::isAsciiSpace(text.front())) text.remove_prefix(1);
  return text;
}

#endif
