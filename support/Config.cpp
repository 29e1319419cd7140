// Integer settings from the environment, overridable by the application, and the string
// configuration block.

#include "support/Config.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <mutex>

namespace {

struct Overrides {
  std::mutex mutex;
  std::map<std::string, int> values;  // keyed by the upper-cased name
};

Overrides& overrides() {
  static Overrides* o = new Overrides();
  return *o;
}

std::string upper_name(const char* name) {
  std::string upper(name ? name : "");
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - ('a' - 'A'));
  }
  return upper;
}

// The whole of `text` as a decimal number, blanks around it allowed; false when it is not one.
bool parse_number(const char* text, long long& value) {
  if (!text) return false;
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(text, &end, 10);
  if (end == text) return false;
  while (*end == ' ' || *end == '\t') ++end;
  if (*end) return false;
  // Out of range still has a sign, which is all the clamp needs.
  if (errno == ERANGE) v = v < 0 ? LLONG_MIN : LLONG_MAX;
  value = v;
  return true;
}

}  // namespace

int config_int(const char* name, int fallback, int lowest, int highest) {
  std::string key = upper_name(name);
  long long value = fallback;
  bool found = false;
  {
    Overrides& o = overrides();
    std::lock_guard<std::mutex> hold(o.mutex);
    auto it = o.values.find(key);
    if (it != o.values.end()) {
      value = it->second;
      found = true;
    }
  }
  if (!found) {
    std::string variable = "KESTA_" + key;
    if (!parse_number(std::getenv(variable.c_str()), value)) value = fallback;
  }
  if (value < lowest) value = lowest;
  if (value > highest) value = highest;
  return static_cast<int>(value);
}

void config_set_int(const char* name, int value) {
  Overrides& o = overrides();
  std::lock_guard<std::mutex> hold(o.mutex);
  o.values[upper_name(name)] = value;
}

void config_unset_int(const char* name) {
  Overrides& o = overrides();
  std::lock_guard<std::mutex> hold(o.mutex);
  o.values.erase(upper_name(name));
}

configb::configb() = default;

configb::~configb() = default;

void configb::set(const char* key, const strp_field& value) {
  if (key) values_[key] = value.get();
}

bool configb::has(const char* key) const { return key && values_.count(key) != 0; }

LightweightString<char> configb::get(const char* key) const {
  if (!key) return {};
  auto it = values_.find(key);
  return it == values_.end() ? LightweightString<char>() : it->second;
}
