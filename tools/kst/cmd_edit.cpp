// The commands that reorder, tag and delete records: sort, find, distinct, delete. Each does its
// work with the library's own operation and writes the log with the library's save.

#include <functional>
#include <memory>
#include <optional>

#include "Columns.h"
#include "Commands.h"
#include "Errors.h"
#include "Files.h"
#include "LogLoader.h"

namespace kst {
namespace {

// The library's comparison keys hold nine sort fields and a terminator.
constexpr std::size_t kMaxSortKeys = 9;
constexpr unsigned kNone = 0xFFFFFFFFu;

// Saving writes every record's tag into the "Tag" column; without one the tags would be lost.
void ensure_tag_column(kesta& db) {
  if (db.get_fieldnum("Tag") != kNone) return;
  db.addField(DBFieldDesc("Tag", DBFieldTypes::kText));
  note("added a \"Tag\" column to keep the tags");
}

void add_sort(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::string by;
    bool descending = false;
    bool ignore_case = false;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("sort", "Sort the records of a log on up to nine columns");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_option("--by", options->by, "The sort columns, most significant first")
      ->required()
      ->type_name("A,B,...");
  command->add_flag("--desc", options->descending, "Sort in descending order");
  command->add_flag("--ignore-case", options->ignore_case, "Compare texts ignoring case (ascending order)");
  addWriteOptions(command, options->write);
  command->footer(
      wrap("Ascending order compares numbers inside texts by value (A2 before A10), puts empty values and blank "
           "records last, and compares time-code columns on hours, minutes, seconds and frames. Descending order "
           "compares the plain texts, ignoring case. The sort is not stable."));
  table.add(command, [options] {
    std::vector<std::string> names = splitList(options->by);
    if (names.empty()) throw UsageError("--by names no column");
    if (names.size() > kMaxSortKeys) {
      throw UsageError("at most nine sort keys are allowed; --by names " + std::to_string(names.size()));
    }
    Destination to = Destination::forLog(options->write, options->file);
    Zr::Ptr<kesta> db = loadLog(options->file);
    std::vector<unsigned> fields = resolveColumns(*db, names, options->file);
    int keys[kMaxSortKeys + 1];
    for (std::size_t i = 0; i < fields.size(); ++i) keys[i] = static_cast<int>(fields[i]);
    keys[fields.size()] = -1;
    db->set_sortfields(keys);
    db->sort(options->descending ? -1 : 1, options->ignore_case ? 1 : 0);
    saveLog(*db, to);
    note("sorted " + plural(db->get_num_records(), "record", "records"));
  });
}

// The query that find's conditions make in `db`. Throws UsageError for a condition that is not
// COLUMN=TEXT or names a column twice, Failure for one that names no column of the log.
Zr::Ptr<dbrecord> make_query(kesta& db, const std::vector<std::string>& conditions, const std::string& file) {
  Zr::Ptr<dbrecord> query = db.make_dummy_record();
  std::vector<bool> given(db.get_num_fields(), false);
  for (const auto& condition : conditions) {
    std::size_t equals = condition.find('=');
    if (equals == std::string::npos) throw UsageError("a condition is COLUMN=TEXT, not " + inQuotes(condition));
    std::vector<std::string> name = splitList(condition.substr(0, equals));
    if (name.size() != 1) throw UsageError("a condition is COLUMN=TEXT, not " + inQuotes(condition));
    unsigned field = resolveColumn(db, name[0], file);
    if (given[field]) throw UsageError("column " + inQuotes(name[0]) + " has two conditions; give one");
    given[field] = true;
    query->set_field(static_cast<int>(field), condition.c_str() + equals + 1, false);
  }
  return query;
}

// For a find that only prints: the load keeps the records the query matches and, with
// --keep-tags, those already tagged, so a big log's other records never take memory. The query
// is made once the log's columns are read; when it cannot be made, every record is kept and
// the error is reported after the load's own checks, as without the filter.
kesta::LoadFilter printed_records(const std::vector<std::string>& conditions, bool keep_tags, const std::string& file) {
  struct State {
    bool tried = false;
    std::function<bool(const dbrecord&)> matches;  // empty when the query cannot be made
    unsigned tag_field = kNone;
  };
  auto state = std::make_shared<State>();
  return [state, conditions, keep_tags, file](const Zr::Ptr<dbrecord>& record) {
    kesta* db = record->get_container();
    if (!state->tried) {
      state->tried = true;
      try {
        Zr::Ptr<dbrecord> query = make_query(*db, conditions, file);
        db->set_query(query.get());
        state->matches = db->query_matcher();
      } catch (const UsageError&) {
      } catch (const Failure&) {  // an unknown column
      }
      if (keep_tags) state->tag_field = db->get_fieldnum("Tag");
    }
    if (!state->matches || state->matches(*record)) return true;
    return state->tag_field != kNone && nonzeroNumber(record->fieldView(static_cast<unsigned short>(state->tag_field)));
  };
}

void add_find(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::vector<std::string> conditions;
    bool keep_tags = false;
    DisplayOptions display;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("find", "Print, or tag and save, the records that match a query");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_option("conditions", options->conditions, "Conditions, one per column")->type_name("COLUMN=TEXT");
  command->add_flag("--keep-tags", options->keep_tags, "Add the matches to the records already tagged");
  addDisplayOptions(command, options->display, false);
  addWriteOptions(command, options->write);
  command->footer(
      wrap("A record matches when every condition matches: the column's text contains TEXT, ignoring case. TEXT "
           "given for a start or end time-code or key-code column (\"Start time\", \"End time\", \"snd start\" ...) "
           "searches the record's start..end range: \"Start time=01:00:1\" finds the clips running through any "
           "time that begins 01:00:1. Without -o or --in-place the matching records are printed; with them the "
           "matches are tagged and the log is written."));
  table.add(command, [options] {
    const bool writing = options->write.in_place || !options->write.out.empty();
    std::optional<Destination> to;
    if (writing) to = Destination::forLog(options->write, options->file);
    // Without --keep-tags the query sets every record's tag.
    Zr::Ptr<kesta> db = loadLog(
        options->file, options->keep_tags ? TagColumn::read : TagColumn::unread,
        writing ? kesta::LoadFilter() : printed_records(options->conditions, options->keep_tags, options->file));
    Zr::Ptr<dbrecord> query = make_query(*db, options->conditions, options->file);
    db->set_query(query.get());
    int matched = db->tag_matching_records(options->keep_tags ? 1 : 0);
    if (!writing) {
      printRecords(*db, options->file, options->display, true);
      return;
    }
    ensure_tag_column(*db);
    saveLog(*db, *to);
    note(plural(static_cast<unsigned>(matched), "record matches", "records match") + "; " +
         plural(static_cast<unsigned>(db->get_num_tags()), "record", "records") + " tagged");
  });
}

void add_distinct(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::string field;
    DisplayOptions display;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("distinct", "Print, or tag and save, the first record of each value");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_option("--field", options->field, "The column whose values are compared")
      ->required()
      ->type_name("COLUMN");
  addDisplayOptions(command, options->display, false);
  addWriteOptions(command, options->write);
  command->footer(
      wrap("The records are sorted on the column and the first of each run of equal values (ignoring case) is "
           "tagged; records with an empty value at the start of that order are not. Without -o or --in-place the "
           "tagged records are printed; with them the sorted, tagged log is written."));
  table.add(command, [options] {
    const bool writing = options->write.in_place || !options->write.out.empty();
    std::optional<Destination> to;
    if (writing) to = Destination::forLog(options->write, options->file);
    Zr::Ptr<kesta> db = loadLog(options->file, TagColumn::unread);  // every tag is set below
    unsigned field = resolveColumn(*db, options->field, options->file);
    int tagged = db->tag_all_different(static_cast<int>(field));
    if (!writing) {
      printRecords(*db, options->file, options->display, true);
      return;
    }
    ensure_tag_column(*db);
    saveLog(*db, *to);
    note(plural(static_cast<unsigned>(tagged), "distinct value", "distinct values") + " tagged");
  });
}

void add_delete(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    bool tagged = false;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("delete", "Delete the tagged records of a log");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_flag("--tagged", options->tagged, "Delete the tagged records (required)");
  addWriteOptions(command, options->write);
  command->footer(
      wrap("A record is tagged when its \"Tag\" column holds 1; 'kst find' and 'kst distinct' tag records."));
  table.add(command, [options] {
    if (!options->tagged) throw UsageError("delete removes the tagged records: say --tagged");
    Destination to = Destination::forLog(options->write, options->file);
    Zr::Ptr<kesta> db = loadLog(options->file);
    unsigned deleted = db->delete_tagged_records();
    saveLog(*db, to);
    note("deleted " + plural(deleted, "record", "records") + "; " + std::to_string(db->get_num_records()) + " remain");
  });
}

}  // namespace

void addEditCommands(CLI::App& app, CommandTable& table) {
  add_sort(app, table);
  add_find(app, table);
  add_distinct(app, table);
  add_delete(app, table);
}

}  // namespace kst
