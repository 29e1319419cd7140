#ifndef KESTA_TESTS_TOOL_KSTTEST_H
#define KESTA_TESTS_TOOL_KSTTEST_H
// Runs the built kst binary in a fresh folder and checks, after every run, that no file it was
// not told to write has changed and that nothing else (no temporary file) was left behind.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <kesta/kesta.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/TestUtil.h"
#include "record/kesta.h"

extern char** environ;

namespace ksttest {

using Strings = std::vector<std::string>;

struct Result {
  int status = -1;  // the exit status, or 128 + the signal that ended the process
  std::string out, err;
};

// Standard input from /dev/null, output and error to files (not a terminal), KESTA_LOG and
// COLUMNS unset. With `file_size_limit` >= 0 writes past that many bytes fail.
inline Result runKst(const Strings& args, long file_size_limit = -1) {
  Result result;
  char out_name[] = "/tmp/kst-out-XXXXXX", err_name[] = "/tmp/kst-err-XXXXXX";
  int out_fd = mkstemp(out_name), err_fd = mkstemp(err_name);
  if (out_fd < 0 || err_fd < 0) {
    ADD_FAILURE() << "mkstemp: " << std::strerror(errno);
    return result;
  }
  // Everything the child needs is prepared here: after fork it only makes system calls.
  Strings owned{KST_BINARY};
  owned.insert(owned.end(), args.begin(), args.end());
  std::vector<char*> argv, envp;
  for (auto& a : owned) argv.push_back(a.data());
  argv.push_back(nullptr);
  for (char** e = environ; *e; ++e) {
    if (std::strncmp(*e, "KESTA_LOG=", 10) != 0 && std::strncmp(*e, "COLUMNS=", 8) != 0) envp.push_back(*e);
  }
  envp.push_back(nullptr);
  pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_RDONLY), 0);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    if (file_size_limit >= 0) {
      signal(SIGXFSZ, SIG_IGN);
      struct rlimit limit {
        static_cast<rlim_t>(file_size_limit), static_cast<rlim_t>(file_size_limit)
      };
      setrlimit(RLIMIT_FSIZE, &limit);
    }
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  close(out_fd);
  close(err_fd);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  result.out = testutil::readFile(out_name);
  result.err = testutil::readFile(err_name);
  unlink(out_name);
  unlink(err_name);
  return result;
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
  Result kst(const Strings& args, const std::set<std::string>& outputs = {}, long file_size_limit = -1) {
    auto before = snapshot();
    Result result = runKst(args, file_size_limit);
    auto after = snapshot();
    std::string command;
    for (const auto& a : args) command += " " + a;
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

  // Loads a log with the library itself; fails the test when it does not load.
  Zr::Ptr<kesta> load(const std::string& name) const {
    Zr::Ptr<kesta> db(new kesta(testutil::wide(path(name)), INT_MAX, false));
    EXPECT_TRUE(db->get_valid()) << name << " does not load";
    return db;
  }

  testutil::TempDir dir_;

 private:
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
