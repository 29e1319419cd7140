#include "KstTest.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>

extern char** environ;

namespace ksttest {
namespace {

std::string quote_field(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

std::string line_of(const std::vector<std::string>& fields) {
  std::string out;
  for (std::size_t i = 0; i < fields.size(); ++i) out += (i ? "," : "") + quote_field(fields[i]);
  return out + "\n";
}

}  // namespace

Result runKst(const std::vector<std::string>& args, long file_size_limit) {
  Result result;
  char out_name[] = "/tmp/kst-out-XXXXXX";
  char err_name[] = "/tmp/kst-err-XXXXXX";
  int out_fd = mkstemp(out_name);
  int err_fd = mkstemp(err_name);
  if (out_fd < 0 || err_fd < 0) {
    ADD_FAILURE() << "mkstemp: " << std::strerror(errno);
    return result;
  }
  // Everything the child needs is prepared here: after fork it only makes system calls.
  std::vector<std::string> owned{KST_BINARY};
  owned.insert(owned.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : owned) argv.push_back(a.data());
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (char** e = environ; *e; ++e) {
    if (std::strncmp(*e, "KESTA_LOG=", 10) != 0 && std::strncmp(*e, "COLUMNS=", 8) != 0) envp.push_back(*e);
  }
  envp.push_back(nullptr);

  pid_t child = fork();
  if (child == 0) {
    int in_fd = open("/dev/null", O_RDONLY);
    dup2(in_fd, 0);
    dup2(out_fd, 1);
    dup2(err_fd, 2);
    if (file_size_limit >= 0) {
      struct sigaction ignore {};
      ignore.sa_handler = SIG_IGN;
      sigaction(SIGXFSZ, &ignore, nullptr);
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

void KstTest::SetUp() {
  if (std::string(KST_BINARY).empty()) GTEST_SKIP() << "the kst tool is not built";
}

std::string KstTest::put(const std::string& name, const std::string& bytes) {
  testutil::writeFile(path(name), bytes);
  return path(name);
}

std::string KstTest::example(const std::string& name) {
  std::string source = testutil::example(name);
  if (!testutil::pathExists(source)) {
    ADD_FAILURE() << "missing example " << source;
    return put(name, "");
  }
  return put(name, testutil::readFile(source));
}

std::map<std::string, std::string> KstTest::snapshot() const {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    std::string name = entry.path().filename().string();
    files[name] = entry.is_regular_file() ? testutil::readFile(entry.path().string()) : std::string("<folder>");
  }
  return files;
}

Result KstTest::kst(const std::vector<std::string>& args, const std::set<std::string>& outputs, long file_size_limit) {
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

Zr::Ptr<kesta> KstTest::load(const std::string& name) const {
  Zr::Ptr<kesta> db(new kesta(testutil::wide(path(name)), INT_MAX, false));
  EXPECT_TRUE(db->get_valid()) << name << " does not load";
  return db;
}

std::vector<std::string> column(kesta& db, const char* name) {
  std::vector<std::string> values;
  unsigned field = db.get_fieldnum(name);
  EXPECT_NE(field, 0xFFFFFFFFu) << "no column " << name;
  for (unsigned r = 0; r < db.get_num_records(); ++r) values.emplace_back(db.getField(r, field).c_str());
  return values;
}

std::string logText(const std::vector<std::string>& params, const std::vector<std::string>& types,
                    const std::vector<std::string>& names, const std::vector<std::vector<std::string>>& rows) {
  std::string text;
  for (const auto& p : params) text += quote_field(p) + "\n";
  text += "\"KESTA\"\n";
  text += line_of(std::vector<std::string>(names.size(), "4"));
  text += line_of(types);
  text += line_of(names);
  for (const auto& row : rows) text += line_of(row);
  return text;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  std::size_t start = 0;
  while (start < text.size()) {
    std::size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    out.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return out;
}

}  // namespace ksttest
