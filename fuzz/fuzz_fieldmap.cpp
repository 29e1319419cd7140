// The field-map text ("V5_FIELD_MAP") read against a database of up to 99 columns, some of
// whose names differ only in case. The map must hold distinct names, agree with a plain
// reading of the text, and survive being written and read again.

#include <strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "fieldmap/FieldMap.h"
#include "fuzz/FuzzChecks.h"
#include "fuzz/FuzzInput.h"
#include "view/KSTViewRep.h"

namespace {

using fuzzing::check;

struct Entry {
  std::string name;
  bool visible;
};

bool same(const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) == 0; }

void add(std::vector<Entry>& map, const std::string& name, bool visible) {
  for (const Entry& e : map) {
    if (same(e.name, name)) return;
  }
  map.push_back({name, visible});
}

// The text read the plain way: numbers of at most three characters, sign included, each
// followed by at most one space; 0 adds nothing; the first piece that is not a number ends it.
std::vector<Entry> referenceRead(const std::string& text, const kesta& db) {
  std::vector<Entry> map;
  std::size_t p = 0;
  while (p < text.size()) {
    const std::string piece = text.substr(p, 3);
    int n = 0;
    if (std::sscanf(piece.c_str(), "%d", &n) != 1) break;
    if (n != 0) add(map, db.get_fieldname(static_cast<unsigned>(n < 0 ? -n : n) - 1), n > 0);
    const std::size_t start = p;
    while (p < text.size() && (text[p] == '-' || (text[p] >= '0' && text[p] <= '9'))) ++p;
    if (p < text.size() && text[p] == ' ') ++p;
    if (p == start) break;
  }
  if (map.empty()) {
    for (unsigned f = 0; f < db.get_num_fields(); ++f) add(map, db.get_fieldname(f), true);
  }
  return map;
}

std::vector<Entry> entries(const FieldMap& map) {
  std::vector<Entry> out;
  for (int i = 0; i < map.size(); ++i) out.push_back({map.getName(i).c_str(), map.isVisible(i)});
  return out;
}

bool sameMaps(const std::vector<Entry>& a, const std::vector<Entry>& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!same(a[i].name, b[i].name) || a[i].visible != b[i].visible) return false;
  }
  return true;
}

// A database and a view on it for each shape, made once: building them costs far more than
// reading a map, and the map reads its text from the view's parameters.
struct Source {
  Zr::Ptr<kesta> db;
  KSTView view;
};

Source& sourceFor(int columns, unsigned styles) {
  static std::map<unsigned, Source> made;
  Source& source = made[static_cast<unsigned>(columns) << 4 | styles];
  if (source.db) return source;
  std::vector<DBFieldDesc> fields;
  for (int f = 0; f < columns; ++f) {
    // Some of every fourth column repeat an earlier name in another case.
    std::string name = "Col" + std::to_string(f);
    if (f >= 4 && f % 4 == 0 && (styles >> (f / 4 % 4) & 1)) name = "COL" + std::to_string(f / 4);
    fields.push_back(DBFieldDesc(name.c_str(), DBFieldTypes::kText));
  }
  source.db = Zr::Ptr<kesta>(new kesta(fields));
  source.view = KSTView(new KSTViewRep(source.db.get()));
  return source;
}

FieldMap mapFor(const Source& source, const std::string& text) {
  source.view->set_param_val("V5_FIELD_MAP", text.c_str());
  return FieldMap(source.view);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  fuzzing::FuzzInput in(data, size);
  const int columns = in.range(1, 99);
  const Source& source = sourceFor(columns, in.byte() & 15u);
  kesta* db = source.db.get();
  std::string text(in.rest());
  text = text.substr(0, text.find('\0'));

  const FieldMap map = mapFor(source, text);
  const std::vector<Entry> got = entries(map);
  const std::vector<Entry> expected = referenceRead(text, *db);
  check(sameMaps(got, expected), "map agrees with the plain reading", text);

  int visible = 0;
  for (int i = 0; i < map.size(); ++i) {
    for (int j = 0; j < i; ++j) check(!same(got[i].name, got[j].name), "names are distinct");
    check(map.getFieldIdx(map.getName(i)) == i, "lookup by name");
    if (map.isVisible(i)) {
      check(map.getVisibleFieldIndex(visible) == static_cast<int>(db->get_fieldnum(map.getName(i))),
            "visible field index");
      ++visible;
    }
  }
  check(map.numVisible() == visible, "visible count");
  check(map.getVisibleFieldIndex(visible) == -1, "no visible field past the last");

  // Written and read again: names the database does not know drop out, as the text form
  // cannot name them.
  const std::string written = map.asString().c_str();
  std::vector<Entry> known;
  for (const Entry& e : got) {
    if (db->get_fieldnum(LightweightString<char>(e.name.c_str())) != 0xFFFFFFFFu) known.push_back(e);
  }
  if (known.empty()) known = referenceRead("", *db);
  const FieldMap again = mapFor(source, written);
  check(sameMaps(entries(again), known), "written map reads back", text + " -> " + written);
  return 0;
}
