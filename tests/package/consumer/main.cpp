// Builds a small log through the installed headers and libraries, saves it, loads it back and
// checks what came back. Exits non-zero on any difference.
#include <kesta/kesta.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: consumer FOLDER\n");
    return 2;
  }
  std::string path = std::string(argv[1]) + "/consumer.kst";
  std::wstring wpath(path.begin(), path.end());
  LightweightString<wchar_t> name(wpath.c_str());

  std::vector<DBFieldDesc> fields{{"Name", DBFieldTypes::kText}, {"Start time", DBFieldTypes::kTimecode}};
  Zr::Ptr<kesta> db(new kesta(fields));
  db->set_param_val("Production", "Consumer test");
  unsigned row = db->add_records(1);
  db->set_field(row, 0u, "Shot 1");
  db->set_field(row, 1u, "01:00:00:00");
  db->set_filename(name);
  if (db->save_text() != 1) return 1;

  Zr::Ptr<kesta> back(new kesta(name, 1000, false));
  if (!back->get_valid() || back->get_num_records() != 1) return 1;
  if (std::string(back->get_param_val("Production")) != "Consumer test") return 1;
  if (back->getField(0, 1) == "01:00:00:00" && std::string(kestaDllVersionStr()).size() >= 7) {
    std::printf("consumer ok, library %s\n", kestaDllVersionStr());
    return 0;
  }
  return 1;
}
