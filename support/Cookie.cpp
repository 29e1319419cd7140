#include "support/Cookie.h"

#include <uuid/uuid.h>

#include <cstring>

#include "support/StringUtils.h"

namespace {

// The namespace of our name-based cookies. Changing it changes every cookie ever derived
// from a name, so it is fixed for good.
const uuid_t kNameSpace = {0x8e, 0x21, 0x5c, 0x4a, 0x3f, 0x07, 0x4b, 0xd2,
                           0x9a, 0x61, 0x2d, 0x70, 0xc4, 0x18, 0xe5, 0x93};

// Where the dashes of the 36-character text form stand.
constexpr bool is_dash_position(std::size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }
constexpr std::size_t kUuidTextLength = 36;

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v'; }

int hex_value(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool is_kind_letter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

// Reads "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" from the first 36 bytes of `s`.
bool parse_uuid(const char* s, Zr::UUID& out) {
  std::size_t byte = 0;
  for (std::size_t i = 0; i < kUuidTextLength;) {
    if (is_dash_position(i)) {
      if (s[i] != '-') return false;
      ++i;
      continue;
    }
    int hi = hex_value(s[i]);
    int lo = hex_value(s[i + 1]);
    if (hi < 0 || lo < 0) return false;
    out.bytes[byte++] = static_cast<uint8_t>(hi * 16 + lo);
    i += 2;
  }
  return true;
}

// Reads the suffix after the dot: a kind letter or "0", then 1 to 3 digits up to 255.
bool parse_suffix(const char* s, std::size_t n, CookieType& kind, unsigned char& qualifier) {
  if (n < 2 || n > 4) return false;
  if (s[0] == '0') {
    kind = 0;
  } else if (is_kind_letter(s[0])) {
    kind = s[0];
  } else {
    return false;
  }
  unsigned value = 0;
  for (std::size_t i = 1; i < n; ++i) {
    if (s[i] < '0' || s[i] > '9') return false;
    value = value * 10 + static_cast<unsigned>(s[i] - '0');
  }
  if (value > 255) return false;
  qualifier = static_cast<unsigned char>(value);
  return true;
}

}  // namespace

namespace Zr {

UUID UUID::generate() {
  UUID id;
  uuid_generate(id.bytes);
  return id;
}

UUID UUID::fromName(const char* text, std::size_t n) {
  UUID id;
  uuid_generate_sha1(id.bytes, kNameSpace, text ? text : "", text ? n : 0);
  return id;
}

bool UUID::isNull() const noexcept {
  for (uint8_t b : bytes) {
    if (b) return false;
  }
  return true;
}

int UUID::compare(const UUID& other) const noexcept {
  int c = std::memcmp(bytes, other.bytes, sizeof bytes);
  return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

}  // namespace Zr

Cookie::Cookie(const char* text, bool strict) { parse(text, text ? std::strlen(text) : 0, strict); }

Cookie::Cookie(const LightweightString<char>& text, bool strict) { parse(text.c_str(), text.size(), strict); }

Cookie::Cookie(const LightweightString<wchar_t>& text, bool strict) {
  LightweightString<char> narrow = toUTF8(text);
  parse(narrow.c_str(), narrow.size(), strict);
}

Cookie Cookie::generate() { return Cookie(Zr::UUID::generate(), 0, 0); }

void Cookie::parse(const char* text, std::size_t n, bool strict) {
  uuid_ = Zr::UUID();
  kind_ = 0;
  qualifier_ = 0;
  if (!text) return;
  while (n && is_blank(*text)) {
    ++text;
    --n;
  }
  while (n && is_blank(text[n - 1])) --n;
  if (n == 0) return;

  Zr::UUID uuid;
  CookieType kind = 0;
  unsigned char qualifier = 0;
  bool ok = n >= kUuidTextLength && parse_uuid(text, uuid);
  if (ok && n > kUuidTextLength) {
    ok = text[kUuidTextLength] == '.' &&
         parse_suffix(text + kUuidTextLength + 1, n - kUuidTextLength - 1, kind, qualifier);
  }
  if (ok) {
    uuid_ = uuid;
    kind_ = kind;
    qualifier_ = qualifier;
  } else if (!strict) {
    // Surrounding blanks are not part of the name, as they are not part of a cookie's text.
    uuid_ = Zr::UUID::fromName(text, n);
  }
}

LightweightString<char> Cookie::asString(bool withSuffix) const {
  if (isNull()) return LightweightString<char>();
  static const char kHex[] = "0123456789abcdef";
  char out[kUuidTextLength + 5];
  std::size_t len = 0;
  for (std::size_t byte = 0; byte < 16; ++byte) {
    if (is_dash_position(len)) out[len++] = '-';
    out[len++] = kHex[uuid_.bytes[byte] >> 4];
    out[len++] = kHex[uuid_.bytes[byte] & 0x0f];
  }
  if (withSuffix || kind_ != 0 || qualifier_ != 0) {
    out[len++] = '.';
    out[len++] = kind_ ? kind_ : '0';
    unsigned q = qualifier_;
    if (q >= 100) out[len++] = static_cast<char>('0' + q / 100);
    if (q >= 10) out[len++] = static_cast<char>('0' + q / 10 % 10);
    out[len++] = static_cast<char>('0' + q % 10);
  }
  return LightweightString<char>(out, len);
}

int Cookie::compare(const Cookie& other) const noexcept {
  if (int c = uuid_.compare(other.uuid_)) return c;
  unsigned char a = static_cast<unsigned char>(kind_), b = static_cast<unsigned char>(other.kind_);
  if (a != b) return a < b ? -1 : 1;
  if (qualifier_ != other.qualifier_) return qualifier_ < other.qualifier_ ? -1 : 1;
  return 0;
}

Cookie convertCookie(const Cookie& cookie, CookieType kind, unsigned char qualifier) {
  return Cookie(cookie.uuid(), kind, qualifier);
}
