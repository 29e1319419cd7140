#ifndef KESTA_TESTS_COMMON_TESTUTIL_H
#define KESTA_TESTS_COMMON_TESTUTIL_H
// Helpers shared by the test suites: a fresh temporary folder per test, whole-file reads and
// writes, and wide file names.

#include <string>

#include "support/LightweightString.h"

namespace testutil {

// A new empty folder under the system's temporary folder, removed with everything in it when
// the object dies.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name
  std::string file(const std::string& name) const;
  // The same as a wide string, for the library's file-name arguments.
  LightweightString<wchar_t> wfile(const std::string& name) const;

 private:
  std::string path_;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);
bool pathExists(const std::string& path);
LightweightString<wchar_t> wide(const std::string& text);

// The source tree's examples folder, e.g. example("dailies.kst").
std::string example(const std::string& name);

}  // namespace testutil

#endif
