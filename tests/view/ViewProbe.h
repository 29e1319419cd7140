#ifndef KESTA_TESTS_VIEW_VIEWPROBE_H
#define KESTA_TESTS_VIEW_VIEWPROBE_H
// Helpers for view tests: a listener that logs every "recordsDeleted" and "recordsChanged"
// an object issues, in the words of ViewModel's log, and a small database whose records carry
// their identity in field 0 ("Id").

#include <cstdlib>
#include <string>
#include <vector>

#include "record/StoreTestUtil.h"
#include "record/kesta.h"
#include "view/KSTViewRep.h"
#include "view/ViewModel.h"

namespace viewprobe {

// Listens to one notifier for both message types while it lives.
class Probe {
 public:
  Probe(Notifier& notifier, int object, std::vector<std::string>& log) : object_(object), log_(log) {
    auto& types = NotifyMsgTypeDictionary::instance();
    deleted_ =
        notifier.registerNotification(this, &Probe::onDeleted, types.intern(LightweightString<char>("recordsDeleted")));
    changed_ =
        notifier.registerNotification(this, &Probe::onChanged, types.intern(LightweightString<char>("recordsChanged")));
  }
  Probe(const Probe&) = delete;
  Probe& operator=(const Probe&) = delete;

  int onDeleted(const NotifyMsg& msg) {
    log_.push_back(viewmodel::World::entry(object_, viewmodel::World::Type::kDeleted, msg.text().c_str()));
    return 0;
  }
  int onChanged(const NotifyMsg& msg) {
    log_.push_back(viewmodel::World::entry(object_, viewmodel::World::Type::kChanged, msg.text().c_str()));
    return 0;
  }

 private:
  int object_;
  std::vector<std::string>& log_;
  Zr::Ptr<Zr::Guard> deleted_;
  Zr::Ptr<Zr::Guard> changed_;
};

inline const std::vector<DBFieldDesc> kFields{
    {"Id", DBFieldTypes::kText}, {"Name", DBFieldTypes::kText}, {"Tag", DBFieldTypes::kText}};

// A database of kFields and `rows` records whose Id is 0, 1, ...
inline Zr::Ptr<kesta> makeDatabase(int rows) { return storetest::makeDb(kFields, storetest::namedRows(rows, "")); }

// The identity a record carries; viewmodel::kNoRecord for none.
inline int identity(const Zr::Ptr<dbrecord>& record) {
  if (!record) return viewmodel::kNoRecord;
  const char* id = record->get_field(0);
  return id && *id ? std::atoi(id) : viewmodel::kUnlabelled;
}

// Gives every record without an Id the next number, in row order; answers the next number.
inline int label(kesta& db, int next) {
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    Zr::Ptr<dbrecord> record = db.get_record(r);
    if (record && identity(record) == viewmodel::kUnlabelled) db.set_field(r, 0u, std::to_string(next++).c_str());
  }
  return next;
}

// The identities a view or database shows, row by row.
template <class Source>
std::vector<int> shown(Source& source) {
  std::vector<int> ids;
  for (unsigned r = 0; r < source.get_num_records(); ++r) ids.push_back(identity(source.get_record(r)));
  return ids;
}

inline std::vector<std::string> params(KSTBase& object) {
  std::vector<std::string> out;
  for (const Zr::AttribValuePair& pair : object.params()) out.push_back(pair.asString().c_str());
  return out;
}

// A view held by the test for the scope.
struct Held {
  explicit Held(KSTViewRep* v) : view(v) { view->addUse(); }
  ~Held() { view->releaseUse(); }
  Held(const Held&) = delete;
  Held& operator=(const Held&) = delete;
  KSTViewRep* operator->() const { return view; }
  KSTViewRep* view;
};

}  // namespace viewprobe

#endif
