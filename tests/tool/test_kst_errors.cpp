// Bad input, bad arguments and failed writes: the message says what and where, the exit status
// is 1 (bad input, failed operation) or 2 (usage), and no file is changed or left behind (the
// fixture checks every run).

#include "KstTest.h"

namespace ksttest {
namespace {

class KstErrors : public KstTest {
 protected:
  std::string good() {
    return put("good.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Reel"},
                                   {{"a", "A001"}, {"b", "A002"}, {"c", "A003"}}));
  }
};

TEST_F(KstErrors, BadFilesAreNamedWithWhatIsWrongAndWhere) {
  const std::string header = "\"KESTA:Rev 1\"\n\"KESTA\"\n\"4\",\"4\"\n\"text\",\"text\"\n\"A\",\"B\"\n";
  const std::string header_crlf = "\"KESTA:Rev 1\"\r\n\"KESTA\"\r\n\"4\",\"4\"\r\n\"text\",\"text\"\r\n\"A\",\"B\"\r\n";
  constexpr unsigned kBigRecords = 80011;  // about 9 MB: lines cut at odd places by the blocks
  std::string big_records;
  for (unsigned i = 0; i < kBigRecords; ++i)
    big_records += "\"" + std::to_string(i) + std::string(100, 'x') + "\",\"" + std::to_string(i % 7) + "\"\r\n";
  struct Case {
    const char* name;
    std::string bytes;
    std::string message;
  } cases[] = {
      {"empty.kst", "", "empty.kst is empty, not a log (a log begins with a \"KESTA:\" line)"},
      {"plain.kst", "hello,world\n",
       "plain.kst is not a log: line 1 does not begin with \"KESTA:\" (it reads \"hello,world\")"},
      {"noheader.kst", "\"KESTA:Rev 1\"\n\"Mode:x\"\n",
       "noheader.kst is not a complete log: its column header (a line \"KESTA\" followed by the widths, types and "
       "names lines) is missing"},
      {"header.kst", "\"KESTA:Rev 1\"\n\"Mode:x\"\n\"KESTA\"\n\"4\",\"4\"\n\"text\",\"text\"\n\"A\",\"B\",\"C\"\n",
       "header.kst: header lines of different lengths: line 5 (types) has 2 fields, line 6 (names) has 3"},
      {"short.kst", header + "\"1\",\"2\"\n\"3\",\"4\"\n\"5\"\n\"7\",\"8\"\n",
       "short.kst, line 8: a record line with 1 field, expected 2 (one per column); 2 records were read before it"},
      {"long.kst", header + "\"1\",\"2\",\"3\"\n",
       "long.kst, line 6: a record line with 3 fields, expected 2 (one per column); 0 records were read before it"},
      {"blank.kst", header + "\"1\",\"2\"\n   \n\"7\",\"8\"\n",
       "blank.kst, line 7: a blank line ends the records, but more lines follow it (the first at line 8); 1 record "
       "was read before it"},
      // Logs of several megabytes with CRLF line ends: the checks read the file in blocks, and
      // the line numbers must come out right past the block boundaries.
      {"bigshort.kst", header_crlf + big_records + "\"5\"\r\n\"7\",\"8\"\r\n",
       "bigshort.kst, line " + std::to_string(5 + kBigRecords + 1) +
           ": a record line with 1 field, expected 2 (one per column); " + std::to_string(kBigRecords) +
           " records were read before it"},
      {"bigblank.kst", header_crlf + big_records + "\r\n\r\n" + big_records,
       "bigblank.kst, line " + std::to_string(5 + kBigRecords + 1) +
           ": a blank line ends the records, but more lines follow it (the first at line " +
           std::to_string(5 + kBigRecords + 3) + "); " + std::to_string(kBigRecords) + " records were read before it"},
  };
  for (const auto& c : cases) {
    std::string file = put(c.name, c.bytes);
    // A reading command and a writing one report the same, and neither writes anything.
    for (const Strings& args : {Strings{"show", file}, Strings{"sort", file, "--by", "A", "--in-place"}}) {
      Result r = kst(args);
      EXPECT_EQ(r.status, 1) << c.name;
      EXPECT_EQ(r.err, "kst: " + dir_.file(c.message) + "\n") << c.name;
      EXPECT_EQ(r.out, "") << c.name;
    }
  }
}

// Files that cannot be read or written give the system's reason; writes fail before any work.
TEST_F(KstErrors, UnreadableAndUnwritableFilesGiveTheSystemsReason) {
  const std::string file = good(), missing = path("missing.kst"), folder = dir_.path();
  const struct {
    Strings args;
    std::string message;
  } cases[] = {
      {{"info", missing}, "cannot read " + missing + ": No such file or directory"},
      {{"show", folder}, "cannot read " + folder + ": Is a directory"},
      {{"merge", file, missing, "-o", path("out.kst")}, "cannot read " + missing + ": No such file or directory"},
      {{"sort", file, "--by", "Reel", "-o", path("nowhere/x.kst")},
       "cannot write " + path("nowhere/x.kst") + ": No such file or directory"},
      {{"delete", file, "--tagged", "-o", folder}, "cannot write " + folder + ": Is a directory"},
  };
  for (const auto& c : cases) {
    Result r = kst(c.args);
    EXPECT_EQ(r.status, 1) << c.message;
    EXPECT_EQ(r.err, "kst: " + c.message + "\n");
  }
}

TEST_F(KstErrors, UsageErrorsExitWithTwo) {
  std::string file = good();
  const struct {
    Strings args;
    std::string message;  // part of standard error
  } cases[] = {
      {{}, "A subcommand is required"},
      {{"frobnicate"}, "frobnicate"},
      {{"show"}, "file is required"},
      {{"show", file, "--format", "xml"}, "xml"},
      {{"show", file, "--limit", "-3"}, "--limit"},
      {{"sort", file, "--by", "Reel"}, "give -o OUT (or -o - for standard output), or --in-place"},
      {{"sort", file, "--by", "Reel", "-o", path("x.kst"), "--in-place"}, "give either -o OUT or --in-place"},
      {{"sort", file, "--by", "Reel", "-o", file}, "is the input; use --in-place"},
      {{"sort", file, "--by", "Reel", "-o", path("x.csv")}, "use 'kst convert'"},
      {{"sort", file, "--by", "Name,Name,Name,Name,Name,Name,Name,Name,Name,Name", "-o", path("x.kst")},
       "at most nine sort keys are allowed; --by names 10"},
      {{"find", file, "Reel"}, "a condition is COLUMN=TEXT, not \"Reel\""},
      {{"find", file, "Reel=A", "reel=B"}, "column \"reel\" has two conditions"},
      {{"delete", file, "-o", path("x.kst")}, "say --tagged"},
      {{"columns", file, "--show", "Reel", "--hide", "reel", "-o", path("x.kst")}, "is both shown and hidden"},
      {{"convert", file, "-"}, "say --to log|csv|tsv|json"},
      {{"convert", file, file}, "is the input"},
      {{"convert", file, path("x.csv"), "--to", "log"}, "a log named .csv would be read back as CSV"},
      {{"convert", file, path("x.csv"), "--template", file}, "--template applies to CSV, TSV and JSON input"},
      {{"columns", file, "--in-place"}, "nothing to change"},
  };
  for (const auto& c : cases) {
    Result r = kst(c.args);
    std::string command;
    for (const auto& a : c.args) command += a + " ";
    EXPECT_EQ(r.status, 2) << command << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << command << "\n" << r.err;
    EXPECT_EQ(r.out, "") << command;
  }
  // Nine keys are the most the library holds, and are accepted.
  EXPECT_EQ(kst({"sort", file, "--by", "Name,Name,Name,Name,Name,Name,Name,Name,Name", "-o", path("x.kst")}, {"x.kst"})
                .status,
            0);
}

TEST_F(KstErrors, UnknownColumnsListTheLogsColumns) {
  std::string file = good();
  const std::string message = "kst: unknown column \"Scene\" in " + file + "; its columns are: Name, Reel\n";
  for (const Strings& args :
       {Strings{"show", file, "--columns", "Name,Scene"}, Strings{"sort", file, "--by", "Scene", "-o", path("x.kst")},
        Strings{"find", file, "Scene=1"}, Strings{"distinct", file, "--field", "Scene"},
        Strings{"columns", file, "--hide", "Scene", "--in-place"}}) {
    Result r = kst(args);
    EXPECT_EQ(r.status, 1) << args[0];
    EXPECT_EQ(r.err, message) << args[0];
  }
}

TEST_F(KstErrors, HelpAndVersion) {
  Result help = kstOk({"--help"});
  for (const char* command :
       {"show", "info", "sort", "find", "distinct", "delete", "merge", "convert", "columns", "items"}) {
    EXPECT_NE(help.out.find(std::string("  ") + command + " "), std::string::npos) << command;
    Result r = kstOk({command, "--help"});
    EXPECT_NE(r.out.find(std::string("Usage: kst ") + command), std::string::npos) << r.out;
    EXPECT_EQ(r.err, "") << command;
  }
  EXPECT_EQ(kstOk({"--version"}).out, std::string("kst ") + kestaDllVersionStr() + "\n");
}

// A save that fails part-way (here: the file may not grow past one block) leaves the target as
// it was and removes its temporary file; the fixture checks both.
TEST_F(KstErrors, AFailedSaveLeavesTheTargetUntouched) {
  std::vector<Strings> rows;
  for (int i = 0; i < 200; ++i) rows.push_back({"clip " + std::to_string(i), "A00" + std::to_string(i % 7)});
  put("big.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Reel"}, rows));
  put("old.kst", "an older file that must survive\n");
  for (const Strings& args : {Strings{"sort", path("big.kst"), "--by", "Reel", "--in-place"},
                              Strings{"sort", path("big.kst"), "--by", "Reel", "-o", path("old.kst")},
                              Strings{"convert", path("big.kst"), path("old.kst"), "--to", "csv"}}) {
    Result r = kst(args, {}, 1);
    EXPECT_EQ(r.status, 1) << args[0];
    EXPECT_NE(r.err.find("could not write "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("File too large"), std::string::npos) << r.err;
  }
  // The same commands without the limit succeed, so the limit was the only cause.
  kstOk({"sort", path("big.kst"), "--by", "Reel", "-o", path("old.kst")}, {"old.kst"});
}

// kst maps the logs it reads; a log shortened under it raises SIGBUS, which kst answers with
// a message and status 1 instead of dying. Here the signal reaches kst while it is blocked
// writing a listing that nobody reads yet.
TEST_F(KstErrors, LostLogBytesStopKstWithAMessage) {
  std::vector<Strings> rows;
  for (int i = 0; i < 20000; ++i) rows.push_back({"clip " + std::to_string(i), "A00" + std::to_string(i % 7)});
  const std::string log = put("big.kst", logText({"KESTA:Rev 1"}, {"text", "text"}, {"Name", "Reel"}, rows));
  testutil::TempDir io;
  const std::string fifo = shell_quoted(io.file("fifo")), err = shell_quoted(io.file("err"));
  const std::string script = "mkfifo " + fifo + "; env -u KESTA_LOG " + shell_quoted(KST_BINARY) + " show " +
                             shell_quoted(log) + " >" + fifo + " 2>" + err + " & " +
                             "{ head -c 1 >/dev/null; kill -BUS $!; cat >/dev/null; } <" + fifo + "; wait $!";
  const int status = std::system(script.c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
  EXPECT_EQ(testutil::readFile(io.file("err")),
            "kst: a file was shortened by another program while kst was reading it; stopped without replacing any "
            "file (a partly written temporary file may be left beside the output)\n");
}

}  // namespace
}  // namespace ksttest
