// kst merge: the records of one log appended to another, as the library's add_kesta (same
// shape) or merge_all_matching (by column name) does it. When the library refuses, the tool
// says which difference made it refuse.

#include <cstring>
#include <memory>

#include "Columns.h"
#include "Commands.h"
#include "Errors.h"
#include "Files.h"
#include "LogLoader.h"

namespace kst {
namespace {

std::string column_description(kesta& db, unsigned field) {
  return inQuotes(db.get_fieldname(field)) + " (" + typeToken(db.get_field_type(field)) + ")";
}

// Why add_kesta refused `from`: the first difference in the order the library checks them.
std::string shape_difference(kesta& into, const std::string& into_path, kesta& from, const std::string& from_path) {
  if (into.get_revision() != from.get_revision()) {
    return into_path + " is revision " + std::to_string(into.get_revision()) + ", " + from_path + " is revision " +
           std::to_string(from.get_revision());
  }
  if (into.get_num_fields() != from.get_num_fields()) {
    return into_path + " has " + std::to_string(into.get_num_fields()) + " columns, " + from_path + " has " +
           std::to_string(from.get_num_fields());
  }
  for (unsigned i = 0; i < into.get_num_fields(); ++i) {
    bool same_type = into.get_field_type(i) == from.get_field_type(i);
    bool same_name = std::strcmp(into.get_fieldname(i), from.get_fieldname(i)) == 0;
    if (!same_type || !same_name) {
      return "column " + std::to_string(i + 1) + " differs in its " + (same_name ? "type" : "name") + ": " + into_path +
             " has " + column_description(into, i) + ", " + from_path + " has " + column_description(from, i) +
             (same_name ? "" : " (names must match exactly, case included)");
    }
  }
  return "the library refused to append " + from_path;
}

}  // namespace

void addMergeCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string into;
    std::string from;
    bool by_name = false;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("merge", "Append the records of one log to another");
  command->add_option("into", options->into, "The log that receives the records")->required()->type_name("INTO");
  command->add_option("from", options->from, "The log whose records are appended")->required()->type_name("FROM");
  command->add_flag("--by-name", options->by_name, "Fill each column of INTO from FROM's column of the same name");
  addWriteOptions(command, options->write);
  command->footer(
      wrap("Without --by-name both logs must have the same revision and the same columns (names, case included, and "
           "types, in the same order). With --by-name, columns of INTO that FROM lacks stay empty, columns of FROM "
           "that INTO lacks are dropped, and time codes are converted between the two time-code types."));
  table.add(command, [options] {
    Destination to = Destination::forLog(options->write, options->into);
    Zr::Ptr<kesta> into = loadLog(options->into);
    Zr::Ptr<kesta> from = loadLog(options->from);
    const unsigned before = into->get_num_records();
    if (options->by_name) {
      if (into->merge_all_matching(from.get()) == 0) {
        throw Failure("cannot merge " + options->from + " into " + options->into +
                      " by name: no column of one has the name of a column of the other");
      }
    } else if (into->add_kesta(from.get()) < 0) {
      throw Failure("cannot append " + options->from + " to " + options->into + ": " +
                    shape_difference(*into, options->into, *from, options->from) + "; --by-name merges by column name");
    }
    // The appended records carry FROM's "Tag" texts but no tags; take them from the texts so
    // that the save, which writes tags over that column, keeps them.
    tagsFromTagColumn(*into);
    saveLog(*into, to);
    unsigned added = into->get_num_records() - before;
    note("appended " + std::to_string(added) + (added == 1 ? " record" : " records") + " from " + options->from);
  });
}

}  // namespace kst
