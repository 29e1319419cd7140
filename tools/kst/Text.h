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

}  // namespace kst

#endif
