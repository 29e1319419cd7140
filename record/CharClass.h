#ifndef KESTA_RECORD_CHARCLASS_H
#define KESTA_RECORD_CHARCLASS_H
// Byte classes of the record text code, fixed to the C locale's ASCII meaning so that a
// process locale never changes how a file is read. Internal to the library.

namespace char_class {

// isascii && isspace: space, tab, line feed, vertical tab, form feed, carriage return.
constexpr bool isAsciiSpace(char c) noexcept { return c == ' ' || (c >= '\t' && c <= '\r'); }

// iscntrl in the C locale: 0 to 31 and 127.
constexpr bool isControl(char c) noexcept {
  const unsigned char u = static_cast<unsigned char>(c);
  return u < 32 || u == 127;
}

}  // namespace char_class

#endif
