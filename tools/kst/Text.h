#ifndef KESTA_TOOLS_KST_TEXT_H
#define KESTA_TOOLS_KST_TEXT_H
// Small text helpers shared by the commands.

#include <kesta/kesta.h>

#include <string>
#include <string_view>

namespace kst {

// Whether `text` holds a control character (below 0x20, or 0x7f).
bool hasControls(std::string_view text);
// Whether every byte of `text` is below 0x80.
bool isAscii(std::string_view text);
// Whether every byte of `text` is printable ASCII (0x20 to 0x7e).
bool isPrintableAscii(std::string_view text);
// One line of text: line feeds, tabs and other control characters shown as escapes.
std::string escapeControls(std::string_view text);
// The text quoted for a message: "Reel", with control characters shown as escapes.
std::string inQuotes(std::string_view text);
bool endsWith(std::string_view text, std::string_view tail);
// "1 record", "3 records".
std::string plural(unsigned n, const char* one, const char* many);
// Without blanks (spaces and tabs) at either end.
std::string trim(std::string_view text);
// `text` broken into lines of at most `width` characters at spaces (for help texts).
std::string wrap(std::string_view text, std::size_t width = 100);
inline std::string asText(const LightweightString<char>& text) { return std::string(text.c_str(), text.size()); }

// TSV's escapes, read and written alike: a byte and the letter that follows the backslash for it.
inline constexpr char kTsvEscapes[][2] = {{'\t', 't'}, {'\n', 'n'}, {'\r', 'r'}, {'\\', '\\'}};
// The letter that stands for `byte` after a backslash; 0 for a byte written as it is.
constexpr char tsvEscapeLetter(char byte) {
  for (const auto& e : kTsvEscapes) {
    if (e[0] == byte) return e[1];
  }
  return 0;
}
// The byte that a backslash and `letter` stand for; 0 when they are not an escape.
constexpr char tsvEscapedByte(char letter) {
  for (const auto& e : kTsvEscapes) {
    if (e[1] == letter) return e[0];
  }
  return 0;
}

}  // namespace kst

#endif
