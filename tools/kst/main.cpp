// kst: the command-line tool over the logging-database library. Parses the command line with
// CLI11, runs the chosen command, and turns errors into messages and exit statuses: 0 when all
// went well, 1 for bad input or a failed operation, 2 for a usage error.

#include <kesta/kesta.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <new>

#include "Commands.h"
#include "Errors.h"

int main(int argc, char** argv) {
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
