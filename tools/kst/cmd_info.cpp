// kst info: what a log holds: revision, parameters, columns, record and tag counts.

#include <algorithm>
#include <iostream>
#include <memory>

#include "Columns.h"
#include "Commands.h"
#include "LogLoader.h"
#include "Output.h"
#include "Text.h"

namespace kst {
namespace {

struct ColumnInfo {
  std::string name;
  std::string type;
  unsigned width;
  bool shown;
};

std::vector<ColumnInfo> describe_columns(kesta& db) {
  FieldMap map(db);
  std::vector<ColumnInfo> columns;
  const std::vector<unsigned> sizes = db.get_fieldsizes();
  for (unsigned i = 0; i < db.get_num_fields(); ++i) {
    const char* name = db.get_fieldname(i);
    // The width the library writes in the header: the column's minimum, or its longest value.
    unsigned width = std::max(static_cast<unsigned>(kesta::getMinFieldSize(name)), sizes[i]);
    columns.push_back({name, typeToken(db.get_field_type(i)), width, map.isVisible(LightweightString<char>(name))});
  }
  return columns;
}

// Each line of `table` indented by two spaces.
void print_indented(const std::string& table) {
  for (std::size_t at = 0; at < table.size();) {
    std::size_t end = std::min(table.find('\n', at), table.size() - 1);
    std::cout << "  " << table.substr(at, end - at + 1);
    at = end + 1;
  }
}

void print_text(kesta& db, const std::string& path) {
  const unsigned records = db.get_num_records();
  const int tagged = db.get_num_tags();
  std::cout << "file        " << path << "\n"
            << "revision    " << db.get_revision() << "\n"
            << "records     " << records << "\n"
            << "tagged      " << tagged << "\n"
            << "parameters  " << db.params().size() << "\n";
  Grid params{{"key", "value"}, {}};
  for (const auto& pair : db.params()) params.rows.push_back({asText(pair.name()), asText(pair.value())});
  if (!params.rows.empty()) print_indented(renderTable(params, 0));
  std::cout << "columns     " << db.get_num_fields() << "\n";
  Grid columns{{"#", "name", "type", "width", "shown"}, {}};
  unsigned number = 0;
  for (const auto& c : describe_columns(db)) {
    columns.rows.push_back({std::to_string(++number), c.name, c.type, std::to_string(c.width), c.shown ? "yes" : "no"});
  }
  print_indented(renderTable(columns, 0));
}

void print_json(kesta& db, const std::string& path) {
  std::string out = "{\n  \"file\": ";
  appendJsonString(out, path);
  out += ",\n  \"revision\": " + std::to_string(db.get_revision());
  out += ",\n  \"records\": " + std::to_string(db.get_num_records());
  out += ",\n  \"tagged\": " + std::to_string(db.get_num_tags());
  out += ",\n  \"parameters\": [";
  bool first = true;
  for (const auto& pair : db.params()) {
    out += first ? "\n    {\"key\": " : ",\n    {\"key\": ";
    appendJsonString(out, asText(pair.name()));
    out += ", \"value\": ";
    appendJsonString(out, asText(pair.value()));
    out += "}";
    first = false;
  }
  out += first ? "]" : "\n  ]";
  out += ",\n  \"columns\": [";
  unsigned number = 0;
  for (const auto& c : describe_columns(db)) {
    out += number == 0 ? "\n    {\"number\": " : ",\n    {\"number\": ";
    out += std::to_string(++number) + ", \"name\": ";
    appendJsonString(out, c.name);
    out += ", \"type\": ";
    appendJsonString(out, c.type);
    out += ", \"width\": " + std::to_string(c.width) + ", \"shown\": " + (c.shown ? "true" : "false") + "}";
  }
  out += number == 0 ? "]\n}\n" : "\n  ]\n}\n";
  std::cout << out;
}

}  // namespace

void addInfoCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::string format = "text";
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("info", "Describe a log: revision, parameters, columns, records, tags");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_option("--format", options->format, "Output format (default: text)")
      ->type_name("text|json")
      ->check(CLI::IsMember({"text", "json"}));
  command->footer(wrap("Column numbers count from 1; the width is the one the log's header is written with."));
  table.add(command, [options] {
    Zr::Ptr<kesta> db = loadLog(options->file);
    if (options->format == "json") {
      print_json(*db, options->file);
    } else {
      print_text(*db, options->file);
    }
  });
}

}  // namespace kst
