#ifndef KESTA_SUPPORT_COOKIE_H
#define KESTA_SUPPORT_COOKIE_H
// Cookie: the identifier of a media object, a Zr::UUID plus a kind letter (0 when none) and
// an 8-bit qualifier.
//
//   Cookie k("4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f", true);
//   Cookie m = convertCookie(k, 'M', 255);
//   m.asString(false);   // "4f3c2a10-9b7e-4d21-8c55-0a1b2c3d4e5f.M255"
//
// Text form: the UUID as 36 lower-case characters (8-4-4-4-12), then, when the kind or the
// qualifier is set, ".", the kind letter (or "0") and the qualifier in decimal.
// asString(false) omits the suffix when both are unset; asString(true) always writes it. The
// null cookie's text is "". Parsing accepts either form, hex in any case, blanks around it.
// Cookie(text, true) gives the null cookie for text that is not a cookie; Cookie(text, false)
// gives for such text a name-based cookie (SHA-1 name-based UUID in a fixed namespace), so
// every non-empty text maps to one stable cookie; the empty text gives the null cookie.
//
// Thread safety: a value type.

#include <cstdint>

#include "support/LightweightString.h"

namespace Zr {

struct KESTA_SUPPORT_API UUID {
  UUID() noexcept : bytes{} {}
  UUID(const UUID&) noexcept = default;
  UUID& operator=(const UUID&) noexcept = default;

  static UUID generate();                                 // a new random UUID
  static UUID fromName(const char* text, std::size_t n);  // SHA-1 name-based, fixed namespace
  bool isNull() const noexcept;
  int compare(const UUID& other) const noexcept;  // by bytes

  uint8_t bytes[16];
};

}  // namespace Zr

using CookieType = char;

class KESTA_SUPPORT_API Cookie {
 public:
  Cookie() noexcept = default;
  Cookie(const char* text, bool strict);
  Cookie(const LightweightString<char>& text, bool strict);
  Cookie(const LightweightString<wchar_t>& text, bool strict);
  Cookie(const Zr::UUID& uuid, CookieType kind, unsigned char qualifier) noexcept
      : uuid_(uuid), kind_(kind), qualifier_(qualifier) {}

  static Cookie generate();

  LightweightString<char> asString(bool withSuffix) const;
  // Negative, zero or positive: by UUID bytes, then kind, then qualifier.
  int compare(const Cookie& other) const noexcept;
  bool isNull() const noexcept { return uuid_.isNull() && kind_ == 0 && qualifier_ == 0; }

  const Zr::UUID& uuid() const noexcept { return uuid_; }
  CookieType kind() const noexcept { return kind_; }
  unsigned char qualifier() const noexcept { return qualifier_; }

  friend bool operator==(const Cookie& a, const Cookie& b) noexcept { return a.compare(b) == 0; }
  friend bool operator<(const Cookie& a, const Cookie& b) noexcept { return a.compare(b) < 0; }

 private:
  void parse(const char* text, std::size_t n, bool strict);

  Zr::UUID uuid_;
  CookieType kind_ = 0;
  unsigned char qualifier_ = 0;
};

// Orders maps keyed by Cookie.
struct CookieLess {
  bool operator()(const Cookie& a, const Cookie& b) const noexcept { return a.compare(b) < 0; }
};

// The same UUID with another kind and qualifier.
KESTA_SUPPORT_API Cookie convertCookie(const Cookie& cookie, CookieType kind, unsigned char qualifier);

#endif
