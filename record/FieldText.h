#ifndef KESTA_RECORD_FIELDTEXT_H
#define KESTA_RECORD_FIELDTEXT_H
// Field bytes read the way the C-string calls of the record code read them. Internal to the
// library.

#include <string_view>

// Up to the field's first zero byte, should it hold one: where strcmp and its kin stop.
inline std::string_view c_text(std::string_view field) noexcept { return field.substr(0, field.find('\0')); }

#endif
