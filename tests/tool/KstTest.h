#ifndef KESTA_TESTS_TOOL_KSTTEST_H
#define KESTA_TESTS_TOOL_KSTTEST_H
// Runs the built kst binary in a fresh folder and checks, after every run, that no file it was
// not told to write has changed and that nothing else (no temporary file) was left behind.

#include <gtest/gtest.h>
#include <kesta/kesta.h>
#include <sys/wait.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/kesta.h"

namespace ksttest {

using Strings = std::vector<std::string>;

struct Result {
  int status = -1;  // the exit status, or 128 + the signal that ended the process
  std::string out, err;
};

inline std::string shell_quoted(const std::string& text) {
  std::string out = "'";
  for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

// Standard input from /dev/null, output and error to files (not a terminal), KESTA_LOG and
// COLUMNS unset. With `size_blocks` >= 0 writes past that many blocks of the shell's ulimit fail.
inline Result runKst(const Strings& args, int size_blocks = -1) {
  testutil::TempDir io;
  std::string command = size_blocks < 0 ? "" : "trap '' XFSZ; ulimit -f " + std::to_string(size_blocks) + "; ";
  command += "exec env -u KESTA_LOG -u COLUMNS " + shell_quoted(KST_BINARY);
  for (const auto& a : args) command += " " + shell_quoted(a);
  command += " </dev/null >" + shell_quoted(io.file("out")) + " 2>" + shell_quoted(io.file("err"));
  int status = std::system(command.c_str());
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), testutil::readFile(io.file("out")),
          testutil::readFile(io.file("err"))};
}

inline std::string quoted_line(const Strings& fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    out += i ? ",\"" : "\"";
    for (char c : fields[i]) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    out += '"';
  }
  return out + "\n";
}

// A log as save_text writes it: parameters (key:value), marker, widths (all 4), types, names,
// records; quotes are doubled.
inline std::string logText(const Strings& params, const Strings& types, const Strings& names,
                           const std::vector<Strings>& rows) {
  std::string text;
  for (const auto& p : params) text += quoted_line({p});
  text += "\"KESTA\"\n" + quoted_line(Strings(names.size(), "4")) + quoted_line(types) + quoted_line(names);
  for (const auto& row : rows) text += quoted_line(row);
  return text;
}

// The texts of one column, row by row, read with the library.
inline Strings column(kesta& db, const char* name) {
  Strings values;
  unsigned field = db.get_fieldnum(name);
  EXPECT_NE(field, 0xFFFFFFFFu) << "no column " << name;
  for (unsigned r = 0; r < db.get_num_records(); ++r) values.emplace_back(db.getField(r, field).c_str());
  return values;
}

// The lines of `text` (split at '\n', a final empty piece dropped).
inline Strings lines(const std::string& text) {
  Strings out;
  for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
    end = std::min(text.find('\n', start), text.size());
    out.push_back(text.substr(start, end - start));
  }
  return out;
}

class KstTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (std::string(KST_BINARY).empty()) GTEST_SKIP() << "the kst tool is not built";
  }
  std::string path(const std::string& name) const { return dir_.file(name); }
  std::string put(const std::string& name, const std::string& bytes) {
    testutil::writeFile(path(name), bytes);
    return path(name);
  }
  std::string read(const std::string& name) const { return testutil::readFile(path(name)); }

  // Runs kst and checks that the files other than `outputs` are byte for byte as before and
  // that no file other than `outputs` appeared.
  Result kst(const Strings& args, const std::set<std::string>& outputs = {}, int size_blocks = -1) {
    auto before = snapshot();
    Result result = runKst(args, size_blocks);
    auto after = snapshot();
    const std::string command = commandLine(args);
    for (const auto& [name, bytes] : before) {
      if (outputs.count(name)) continue;
      auto it = after.find(name);
      if (it == after.end()) {
        ADD_FAILURE() << "kst" << command << " removed " << name;
      } else if (it->second != bytes) {
        ADD_FAILURE() << "kst" << command << " changed " << name;
      }
    }
    for (const auto& [name, bytes] : after) {
      if (!before.count(name) && !outputs.count(name)) ADD_FAILURE() << "kst" << command << " left " << name;
    }
    return result;
  }

  // kst() for a run that is to succeed. Any other exit status is a fatal failure that shows
  // the error output: where later lines need the run, ASSERT_NO_FATAL_FAILURE around the call
  // stops the test.
  Result kstOk(const Strings& args, const std::set<std::string>& outputs = {}) {
    Result result = kst(args, outputs);
    exitedWithZero(result, args);
    return result;
  }

  // Loads a log with the library itself; fails the test when it does not load.
  Zr::Ptr<kesta> load(const std::string& name) const {
    Zr::Ptr<kesta> db(new kesta(testutil::wide(path(name)), INT_MAX, false));
    EXPECT_TRUE(db->get_valid()) << name << " does not load";
    return db;
  }

  testutil::TempDir dir_;

 private:
  static std::string commandLine(const Strings& args) {
    std::string command;
    for (const auto& a : args) command += " " + a;
    return command;
  }
  static void exitedWithZero(const Result& result, const Strings& args) {
    ASSERT_EQ(result.status, 0) << "kst" << commandLine(args) << "\n" << result.err;
  }
  std::map<std::string, std::string> snapshot() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      files[entry.path().filename().string()] =
          entry.is_regular_file() ? testutil::readFile(entry.path().string()) : std::string("<folder>");
    }
    return files;
  }
};

}  // namespace ksttest

#endif
