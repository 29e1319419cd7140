#ifndef KESTA_RECORD_KSTBASE_H
#define KESTA_RECORD_KSTBASE_H
// KSTBase: the named parameters every record source carries, an ordered list of key/value
// pairs held in a shared, reference-counted list. Copies of a database share one list, so a
// parameter changed through one is seen by the other.
//
// Keys compare ignoring case; the first pair with a key wins.

#include <vector>

#include "record/iKST.h"
#include "support/AttribValuePair.h"
#include "support/TextFile.h"

class KESTA_API KSTBase : public iKST {
 public:
  using ParamList = std::vector<Zr::AttribValuePair>;
  using ParamListPtr = Zr::Ptr<ParamList, Zr::ExternalRefCountTraits>;

  KSTBase();
  ~KSTBase() override;
  KSTBase(const KSTBase&) = delete;
  KSTBase& operator=(const KSTBase&) = delete;

  // Index of the first pair whose key equals `key` ignoring case; -1 when none.
  int findParamIndex(const LightweightString<char>& key) const;
  // -1 for an empty key. Appends a new key; replaces the value of an existing one (the key
  // keeps its stored spelling). Answers 0.
  int add_param(const LightweightString<char>& key, const LightweightString<char>& value) override;
  void set_param_val(const char* key, const char* value) override;
  // The value text of the first pair with that key; "" when none or empty.
  const char* get_param_val(const char* key) const override;
  // The value string (shared), or an empty string.
  LightweightString<char> getParamVal(const char* key) const;

  const ParamList& params() const noexcept { return *params_; }
  // Appends one line per parameter, in order: a double quote, the key, ":", the value and a
  // double quote. Keys and values go out as they are (a quote inside is not doubled).
  void write_param_lines(TextFile& file) const;
  unsigned num_params() const noexcept { return static_cast<unsigned>(params_->size()); }

 protected:
  // Appends a pair as it comes: no lookup, duplicates kept (what a file load does).
  void append_param(const LightweightString<char>& key, const LightweightString<char>& value);
  void empty_params();
  // Exchanges the list's pairs with `pairs`, in place (sharers see it too); never fails.
  void swap_params(ParamList& pairs) noexcept { params_->swap(pairs); }
  // Makes this object use `other`'s list (shared, counted).
  void share_params(const KSTBase& other);

 private:
  ParamListPtr params_;
};

#endif
