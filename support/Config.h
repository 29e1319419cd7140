#ifndef KESTA_SUPPORT_CONFIG_H
#define KESTA_SUPPORT_CONFIG_H
// Configuration: integer settings, and the key/value block a record exports its labels to.
//
// config_int(name, fallback, lowest, highest) reads the environment variable "KESTA_" + the
// name in upper case (KESTA_REMOVE_FIELDNAME_AMPERSANDS=0); unset or not a number gives the
// fallback; the value is clamped to the range. A value set with config_set_int takes
// precedence over the environment. Callers that read a setting once per process keep the
// answer themselves.
//
// Thread safety: config_int and config_set_int may be called from any thread. configb and
// strp_field are values used by one thread at a time.

#include <map>
#include <string>

#include "support/LightweightString.h"

KESTA_SUPPORT_API int config_int(const char* name, int fallback, int lowest, int highest);
KESTA_SUPPORT_API void config_set_int(const char* name, int value);
KESTA_SUPPORT_API void config_unset_int(const char* name);

// A string setting value.
class KESTA_SUPPORT_API strp_field {
 public:
  strp_field() = default;
  void set(const LightweightString<char>& value) { value_ = value; }
  const LightweightString<char>& get() const noexcept { return value_; }

 private:
  LightweightString<char> value_;
};

// A configuration block: keys to string values.
class KESTA_SUPPORT_API configb {
 public:
  configb();
  ~configb();
  void set(const char* key, const strp_field& value);
  bool has(const char* key) const;
  LightweightString<char> get(const char* key) const;  // "" when absent
  std::size_t size() const noexcept { return values_.size(); }

 private:
  std::map<std::string, LightweightString<char>> values_;
};

#endif
