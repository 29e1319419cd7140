// kst: the command-line tool over the logging-database library. Parses the command line with
// CLI11, runs the chosen command, and turns errors into messages and exit statuses: 0 when all
// went well, 1 for bad input or a failed operation, 2 for a usage error.

#include <kesta/kesta.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <new>

#include "Commands.h"
#include "Errors.h"

namespace {

// The library maps the logs kst reads instead of copying them: a big log is in memory at once
// and takes no fresh memory. A log that another program shortens while kst runs faults where
// its lost bytes were; kst then stops with a message. Its writes are atomic, so no file was
// replaced, though the temporary file of a write under way is left.
void on_lost_bytes(int) {
  static const char kMessage[] =
      "kst: a file was shortened by another program while kst was reading it; stopped without replacing any "
      "file (a partly written temporary file may be left beside the output)\n";
  const ssize_t ignored = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
  (void)ignored;
  ::_exit(kst::kExitFailure);
}

void map_logs() {
  struct sigaction action {};
  action.sa_handler = on_lost_bytes;
  sigemptyset(&action.sa_mask);
  if (::sigaction(SIGBUS, &action, nullptr) == 0) config_set_int("map_files", 1);
}

}  // namespace

int main(int argc, char** argv) {
  map_logs();
  CLI::App app{"kst: inspect, sort, search, tag, convert and merge log files.", "kst"};
  app.set_version_flag("--version", std::string("kst ") + kestaDllVersionStr());
  app.require_subcommand(1);
  app.fallthrough();
  bool quiet = false;
  app.add_flag("-q,--quiet", quiet, "Print no summary of what a command changed");
  app.footer(kst::wrap(
      "Commands that change a log write it to -o OUT (- for standard output) or, with --in-place, back to the "
      "input; every write is atomic. Tags are kept in a log's \"Tag\" column. Run 'kst COMMAND --help' for a "
      "command's options. Exit status: 0 success, 1 bad input or failed operation, 2 usage error."));

  kst::CommandTable commands;
  kst::addShowCommand(app, commands);
  kst::addInfoCommand(app, commands);
  kst::addEditCommands(app, commands);
  kst::addMergeCommand(app, commands);
  kst::addConvertCommand(app, commands);
  kst::addColumnsCommand(app, commands);
  kst::addItemsCommand(app, commands);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(e);  // --help, --version
    // The parser only says a command is required when the first word is not one.
    const CLI::App& top = app;
    if (argc > 1 && argv[1][0] != '-' &&
        top.get_subcommands([&](const CLI::App* c) { return c->get_name() == argv[1]; }).empty()) {
      std::cerr << "kst: unknown command \"" << argv[1] << "\"\nRun 'kst --help' for usage.\n";
    } else {
      std::cerr << "kst: " << e.what() << "\nRun 'kst --help' for usage.\n";
    }
    return kst::kExitUsage;
  }
  kst::setQuiet(quiet);

  try {
    auto run = commands.chosen();
    if (!run) {
      std::cerr << "kst: no command given\nRun 'kst --help' for usage.\n";
      return kst::kExitUsage;
    }
    run();
  } catch (const kst::UsageError& e) {
    std::cerr << "kst: " << e.what() << "\n";
    return kst::kExitUsage;
  } catch (const kst::Failure& e) {
    std::cerr << "kst: " << e.what() << "\n";
    return kst::kExitFailure;
  } catch (const std::bad_alloc&) {
    std::cerr << "kst: out of memory\n";
    return kst::kExitFailure;
  }
  return 0;
}
