#ifndef KESTA_TOOLS_KST_COMMANDS_H
#define KESTA_TOOLS_KST_COMMANDS_H
// The tool's commands. Each group adds its subcommands to the application and records what to
// run when one of them was chosen; main() parses, then runs the chosen one. Runners throw
// Failure or UsageError (Errors.h) and never write after an error.

#include <kesta/kesta.h>

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kst {

class CommandTable {
 public:
  void add(CLI::App* command, std::function<void()> run) { entries_.emplace_back(command, std::move(run)); }
  // The runner of the subcommand that was parsed; null when none was.
  std::function<void()> chosen() const {
    for (const auto& [command, run] : entries_) {
      if (command->parsed()) return run;
    }
    return nullptr;
  }

 private:
  std::vector<std::pair<CLI::App*, std::function<void()>>> entries_;
};

// How a command prints records: --columns, --tagged, --limit, --format, --width.
struct DisplayOptions {
  std::string columns;
  bool tagged = false;
  long limit = -1;
  std::string format = "table";
  int width = -1;
};

// `with_tagged` adds --tagged (commands that print what they tagged have no use for it).
void addDisplayOptions(CLI::App* command, DisplayOptions& options, bool with_tagged);

// Prints the records of `db` (only the tagged ones when `tagged_only`) as the options say:
// the chosen columns, else those of the field map.
void printRecords(kesta& db, const std::string& path, const DisplayOptions& options, bool tagged_only);

void addShowCommand(CLI::App& app, CommandTable& table);
void addInfoCommand(CLI::App& app, CommandTable& table);
void addEditCommands(CLI::App& app, CommandTable& table);  // sort, find, distinct, delete
void addMergeCommand(CLI::App& app, CommandTable& table);
void addConvertCommand(CLI::App& app, CommandTable& table);
void addColumnsCommand(CLI::App& app, CommandTable& table);
void addItemsCommand(CLI::App& app, CommandTable& table);

}  // namespace kst

#endif
