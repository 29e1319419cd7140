// kst convert: logs to and from RFC 4180 CSV, TSV and JSON. Tables are read by the tool's own
// readers (CSV through libcsv) and the log is built and saved with the library's operations.

#include <algorithm>
#include <memory>

#include "Columns.h"
#include "Commands.h"
#include "Errors.h"
#include "Files.h"
#include "LogLoader.h"
#include "TableReaders.h"
#include "support/TextFile.h"

namespace kst {
namespace {

constexpr unsigned kNone = 0xFFFFFFFFu;
// The library's record reader keeps at most this many bytes of a field.
constexpr std::size_t kMaxFieldBytes = 4095;
// A column name is written as "\"%s\"" into a field of at most 254 bytes, unescaped.
constexpr std::size_t kMaxNameBytes = 252;

enum class Kind { kLog, kCsv, kTsv, kJson };

Kind kind_from_name(const std::string& name) {
  if (name == "csv") return Kind::kCsv;
  if (name == "tsv") return Kind::kTsv;
  if (name == "json") return Kind::kJson;
  return Kind::kLog;
}

Kind kind_of(const std::string& path, const std::string& given, const char* option) {
  if (!given.empty()) return kind_from_name(given);
  if (path == "-") throw UsageError(std::string("say ") + option + " log|csv|tsv|json for standard output");
  if (endsWith(path, ".csv")) return Kind::kCsv;
  if (endsWith(path, ".tsv") || endsWith(path, ".tab")) return Kind::kTsv;
  if (endsWith(path, ".json")) return Kind::kJson;
  return Kind::kLog;
}

// Refuses names the log's header cannot carry: it writes them between quotes, unescaped.
void check_names(const std::vector<std::string>& headers, const std::string& path) {
  for (const auto& name : headers) {
    if (name.find_first_of("\"\r\n") != std::string::npos) {
      throw Failure(path + ": the column name " + inQuotes(name) +
                    " cannot be kept in a log header (it holds a double quote or a line break)");
    }
    if (name.size() > kMaxNameBytes) {
      throw Failure(path + ": the column name " + inQuotes(name.substr(0, 40)) + "... is longer than " +
                    std::to_string(kMaxNameBytes) + " bytes, more than a log header keeps");
    }
  }
}

// The log's field map, taken by name from the template's.
void copy_field_map(kesta& db, kesta& model) {
  if (model.findParamIndex("V5_FIELD_MAP") < 0) return;
  FieldMap from(model);
  FieldMap to(db);
  to.clear();
  for (int i = 0; i < from.size(); ++i) {
    if (db.get_fieldnum(from.getName(i)) != kNone) to.append(from.getName(i), from.isVisible(i));
  }
  for (unsigned f = 0; f < db.get_num_fields(); ++f) to.append(db.get_fieldname(f), true);
  db.set_param_val("V5_FIELD_MAP", to.asString().c_str());
}

// What making a table into a log to be saved checks: a value too long for a field is an error
// (the log would not load whole), and the values that the log will not read back as they were
// are counted for a warning. `path` is the table's file, for the messages.
struct ReadBack {
  std::string path;
  unsigned changed = 0;
  std::string first;  // where the first changed value is
};

// Stores the rows in the records. With `read_back`, for a log to be saved: each record reads
// back the line the save will write, as a loaded log's records do, and so holds that line rather
// than a string per field, which the save then copies as it is. The values that read back
// changed are counted; a record that does not hold its line keeps the values as they were, so
// the save writes what it always did.
void fill_records(kesta& db, const InputTable& table, ReadBack* read_back) {
  const CellTable& rows = table.rows;
  const auto columns = static_cast<unsigned short>(table.headers.size());
  std::vector<std::string_view> values(columns);
  const auto take_row = [&](std::size_t r) {
    for (unsigned short f = 0; f < columns; ++f) values[f] = rows.cell(r, f);
  };
  const auto record_of = [&](std::size_t r) { return db.get_record(static_cast<unsigned>(r)); };
  if (!read_back) {
    if (rows.rows() != 0) db.add_records(static_cast<int>(rows.rows()));
    for (std::size_t r = 0; r < rows.rows(); ++r) {
      take_row(r);
      record_of(r)->setFields(values.data(), columns);
    }
    return;
  }
  const dbrecord blank(columns);
  // A few thousand records at a time, each lot's lines in a buffer of just their size. The
  // records are added a lot at a time too, so that the room their field strings leave as they
  // take their lines is used again by the next lot's, not left as holes among the records.
  constexpr std::size_t kLot = 4096;
  for (std::size_t from = 0; from < rows.rows(); from += kLot) {
    const std::size_t to = std::min(rows.rows(), from + kLot);
    std::size_t bytes = 0;  // what plain lines take: each value with its quotes and comma
    for (std::size_t r = from; r < to; ++r) {
      for (unsigned short f = 0; f < columns; ++f) {
        const std::size_t size = rows.cell(r, f).size();
        if (size > kMaxFieldBytes) {
          throw Failure(read_back->path + ", line " + std::to_string(table.lines[r]) + ": the value of " +
                        inQuotes(table.headers[f]) + " is " + std::to_string(size) +
                        " bytes long; a log keeps at most " + std::to_string(kMaxFieldBytes) + " bytes in a field");
        }
        bytes += size + 3;
      }
    }
    TextFile lines;
    lines.reserve(bytes, to - from);
    db.add_records(static_cast<int>(to - from));
    for (std::size_t r = from; r < to; ++r) {
      take_row(r);
      const Zr::Ptr<dbrecord> record = record_of(r);
      record->setFields(values.data(), columns);
      record->write(lines);
    }
    for (std::size_t r = from; r < to; ++r) {
      const Zr::Ptr<dbrecord> record = record_of(r);
      record->read(lines);
      take_row(r);
      for (unsigned short f = 0; f < columns; ++f) {
        if (record->fieldView(f) == values[f]) continue;
        if (read_back->changed++ == 0) {
          read_back->first = "line " + std::to_string(table.lines[r]) + ", column " + inQuotes(db.get_fieldname(f));
        }
      }
      if (!record->heldAsLine()) {
        *record = blank;  // a blank line reads as no fields: the record gets its columns back
        record->setFields(values.data(), columns);
      }
    }
  }
}

// A log holding the table: text columns, or the template's type for a column of the same name;
// the template's parameters; and the revision parameter, without which the file would not
// load back. With `read_back`, built to be saved (see fill_records).
Zr::Ptr<kesta> build_log(const InputTable& table, kesta* model, ReadBack* read_back) {
  std::vector<DBFieldDesc> columns;
  for (const auto& name : table.headers) {
    DBFieldTypes::eType type = DBFieldTypes::kText;
    if (model) {
      unsigned f = model->get_fieldnum(LightweightString<char>(name.c_str()));
      if (f != kNone) type = model->get_field_type(f);
    }
    columns.emplace_back(LightweightString<char>(name.data(), name.size()), type);
  }
  Zr::Ptr<kesta> db(new kesta(columns));
  db->add_param("KESTA", "Rev 1");
  if (model) {
    for (const auto& pair : model->params()) {
      if (pair.name().icompare("V5_FIELD_MAP") != 0 && pair.name().icompare("KESTA") != 0) {
        db->add_param(pair.name(), pair.value());
      }
    }
    copy_field_map(*db, *model);
  }
  fill_records(*db, table, read_back);
  tagsFromTagColumn(*db);
  keepUntilExit(db);
  return db;
}

void warn_changed(const ReadBack& read_back) {
  if (read_back.changed == 0) return;
  warn(std::to_string(read_back.changed) + (read_back.changed == 1 ? " value" : " values") +
       " will read back changed from the log (blanks at either end, carriage returns, or a backslash "
       "before \"n\"); the first at " +
       read_back.path + ", " + read_back.first);
}

}  // namespace

void addConvertCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string in;
    std::string out;
    std::string from;
    std::string to;
    std::string model;
    std::string columns;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("convert", "Convert between logs and CSV, TSV or JSON");
  command->add_option("in", options->in, "The file to read")->required()->type_name("IN");
  command->add_option("out", options->out, "The file to write ('-' for standard output)")->required()->type_name("OUT");
  command->add_option("--from", options->from, "The input's kind (default: by its name's ending)")
      ->type_name("log|csv|tsv|json")
      ->check(CLI::IsMember({"log", "csv", "tsv", "json"}));
  command->add_option("--to", options->to, "The output's kind (default: by its name's ending)")
      ->type_name("log|csv|tsv|json")
      ->check(CLI::IsMember({"log", "csv", "tsv", "json"}));
  command
      ->add_option("--template", options->model, "A log whose column types, parameters and field map the new log takes")
      ->type_name("LOG");
  command->add_option("--columns", options->columns, "Columns to write to CSV, TSV or JSON (default: all)")
      ->type_name("A,B,...");
  command->footer(
      wrap("Names ending in .csv, .tsv (or .tab) and .json choose those kinds; anything else is a log. CSV is read as "
           "RFC 4180: quotes are removed, and quoted commas and line breaks stay inside their field; the first record "
           "names the columns. New logs have text columns unless --template gives a column's type. The columns are "
           "written in the log's order; the \"Tag\" column keeps the tags."));
  table.add(command, [options] {
    const Kind in_kind = kind_of(options->in, options->from, "--from");
    const Kind out_kind = kind_of(options->out, options->to, "--to");
    if (!options->columns.empty() && out_kind == Kind::kLog)
      throw UsageError("--columns applies to CSV, TSV and JSON output");
    if (!options->model.empty() && in_kind == Kind::kLog)
      throw UsageError("--template applies to CSV, TSV and JSON input");
    if (out_kind == Kind::kLog && endsWith(options->out, ".csv")) {
      throw UsageError(options->out +
                       ": a log named .csv would be read back as CSV; say --to csv, or choose another name");
    }
    Destination to = Destination::forFile(options->out, options->in);
    Zr::Ptr<kesta> model;
    if (!options->model.empty()) model = loadLog(options->model);

    Zr::Ptr<kesta> db;
    InputTable input;
    if (in_kind == Kind::kLog) {
      db = loadLog(options->in);
    } else {
      std::string bytes = readBytes(options->in);
      input = in_kind == Kind::kCsv   ? readCsv(bytes, options->in)
              : in_kind == Kind::kTsv ? readTsv(bytes, options->in)
                                      : readJson(bytes, options->in);
      std::string().swap(bytes);  // the table holds what is needed of them
      if (out_kind == Kind::kLog) check_names(input.headers, options->in);
      ReadBack read_back;
      read_back.path = options->in;
      db = build_log(input, model.get(), out_kind == Kind::kLog ? &read_back : nullptr);
      if (out_kind == Kind::kLog) {
        warn_changed(read_back);
        // The records hold what the save needs. Moved out, not assigned: assigning an empty
        // string keeps the old one's room.
        const InputTable done = std::move(input);
      }
    }

    if (out_kind == Kind::kLog) {
      saveLog(*db, to);
    } else {
      std::vector<unsigned> fields;
      if (options->columns.empty()) {
        for (unsigned f = 0; f < db->get_num_fields(); ++f) fields.push_back(f);
      } else {
        fields = resolveColumns(*db, splitList(options->columns), options->in);
      }
      std::vector<unsigned> rows;
      for (unsigned r = 0; r < db->get_num_records(); ++r) rows.push_back(r);
      Format format = out_kind == Kind::kCsv ? Format::kCsv : out_kind == Kind::kTsv ? Format::kTsv : Format::kJson;
      writeText([&](const TextSink& sink) { render(recordRows(*db, fields, std::move(rows)), format, 0, sink); }, to);
    }
    if (!to.toStdout()) {
      note("wrote " + std::to_string(db->get_num_records()) + " records to " + options->out);
    }
  });
}

}  // namespace kst
