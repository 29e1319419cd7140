// kst show: the records of a log as a table, CSV, TSV or JSON.

#include <memory>

#include "Columns.h"
#include "Commands.h"
#include "Files.h"
#include "LogLoader.h"
#include "Output.h"
#include "Text.h"

namespace kst {

void addDisplayOptions(CLI::App* command, DisplayOptions& options, bool with_tagged) {
  command->add_option("--columns", options.columns, "Columns to print, in this order (default: the log's field map)")
      ->type_name("A,B,...");
  if (with_tagged) command->add_flag("--tagged", options.tagged, "Print only the tagged records");
  command->add_option("--limit", options.limit, "Print at most N records")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  command->add_option("--format", options.format, "Output format (default: table)")
      ->type_name("table|csv|tsv|json")
      ->check(CLI::IsMember(formatNames()));
  command
      ->add_option("--width", options.width, "Fit the table in N columns (default: the terminal's width; 0: never cut)")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
}

void printRecords(kesta& db, const std::string& path, const DisplayOptions& options, bool tagged_only) {
  std::vector<unsigned> fields =
      options.columns.empty() ? fieldMapColumns(db) : resolveColumns(db, splitList(options.columns), path);
  std::vector<unsigned> rows;
  for (unsigned r = 0; r < db.get_num_records(); ++r) {
    if (options.limit >= 0 && rows.size() >= static_cast<std::size_t>(options.limit)) break;
    if (!tagged_only || db.get_tag(r) != 0) rows.push_back(r);
  }
  unsigned width = options.width >= 0 ? static_cast<unsigned>(options.width) : terminalWidth();
  render(recordRows(db, fields, std::move(rows)), formatFromName(options.format), width, writeStdout);
}

void addShowCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    DisplayOptions display;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("show", "Print the records of a log");
  command->add_option("file", options->file, "The log (a name ending in .csv is read as comma-separated)")
      ->required()
      ->type_name("FILE");
  addDisplayOptions(command, options->display, true);
  command->footer(
      wrap("A table fits the terminal's width; when standard output is not a terminal it is printed in full."));
  table.add(command, [options] {
    Zr::Ptr<kesta> db = loadLog(options->file);
    printRecords(*db, options->file, options->display, options->display.tagged);
  });
}

}  // namespace kst
