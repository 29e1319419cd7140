// kst items: the items of a container file (a log with a "Cookie" column, one record per
// item) and the container's own attributes, read with the library's ZRContainerFile::Reader.

#include <iostream>
#include <memory>

#include "Commands.h"
#include "Errors.h"
#include "LogLoader.h"
#include "Output.h"

namespace kst {
namespace {

Grid item_grid(const ZRContainerFile::Reader& reader) {
  const kesta& db = reader.database();
  const int cookie_field = reader.getItemAttribIndex("Cookie");
  std::vector<unsigned> attributes;
  Grid grid;
  grid.headers = {"#", "Cookie"};
  for (unsigned f = 0; f < db.get_num_fields(); ++f) {
    if (static_cast<int>(f) == cookie_field) continue;
    attributes.push_back(f);
    grid.headers.emplace_back(db.get_fieldname(f));
  }
  for (unsigned i = 0; i < reader.getNumItems(); ++i) {
    ZRContainerFile::Reader::Item item = reader.getItem(i);
    std::vector<std::string> row{std::to_string(i + 1), asText(item.getCookie().asString(false))};
    for (unsigned f : attributes) row.push_back(asText(item.getAttrib(f)));
    grid.rows.push_back(std::move(row));
  }
  return grid;
}

// The container's parameters other than the revision, "Name" and "Permanent", shown apart.
std::vector<std::pair<std::string, std::string>> other_attributes(const ZRContainerFile::Reader& reader) {
  std::vector<std::pair<std::string, std::string>> pairs;
  for (const auto& pair : reader.database().params()) {
    if (pair.name().icompare("KESTA") == 0 || pair.name().icompare(ZRContainerFile::getNameParamKey()) == 0 ||
        pair.name().icompare(ZRContainerFile::getPermanentParamKey()) == 0) {
      continue;
    }
    pairs.emplace_back(asText(pair.name()), asText(pair.value()));
  }
  return pairs;
}

void print_json(const ZRContainerFile::Reader& reader, const Grid& items) {
  std::string out = "{\n  \"name\": ";
  appendJsonString(out, asText(reader.getName()));
  out += ",\n  \"cookie\": ";
  appendJsonString(out, asText(reader.getCookie().asString(false)));
  out += std::string(",\n  \"permanent\": ") + (reader.isPermanent() ? "true" : "false");
  out += ",\n  \"attributes\": {";
  bool first = true;
  for (const auto& [key, value] : other_attributes(reader)) {
    out += first ? "" : ", ";
    appendJsonString(out, key);
    out += ": ";
    appendJsonString(out, value);
    first = false;
  }
  out += "},\n  \"items\": ";
  std::string array = renderJson(items);
  array.pop_back();  // its final line feed
  out += array;
  out += "\n}\n";
  std::cout << out;
}

}  // namespace

void addItemsCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::string format = "table";
    int width = -1;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("items", "List the items of a container file with their attributes");
  command->add_option("file", options->file, "The container file")->required()->type_name("FILE");
  command->add_option("--format", options->format, "Output format (default: table)")
      ->type_name("table|csv|tsv|json")
      ->check(CLI::IsMember(formatNames()));
  command->add_option("--width", options->width, "Fit the table in N columns")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  command->footer(
      wrap("A container file is a log with a \"Cookie\" column; each record is one item. The table format first "
           "prints the container's name, cookie, permanence and other attributes."));
  table.add(command, [options] {
    loadLog(options->file);  // says what is wrong with a file that is not a whole log
    std::unique_ptr<ZRContainerFile::Reader> reader;
    {
      CapturingLogSink capture;
      reader = std::make_unique<ZRContainerFile::Reader>(widePath(options->file), false);
    }
    if (!reader->valid()) {
      throw Failure(options->file + " is not a container file: it has no \"Cookie\" column");
    }
    Grid items = item_grid(*reader);
    Format format = formatFromName(options->format);
    if (format == Format::kJson) {
      print_json(*reader, items);
      return;
    }
    if (format == Format::kTable) {
      Grid about{{"container", asText(reader->getName())}, {}};
      about.rows.push_back({"cookie", asText(reader->getCookie().asString(false))});
      about.rows.push_back({"permanent", reader->isPermanent() ? "yes" : "no"});
      about.rows.push_back({"items", std::to_string(reader->getNumItems())});
      for (const auto& [key, value] : other_attributes(*reader)) about.rows.push_back({key, value});
      // Printed as key/value lines: the grid's header row is the first pair, without a rule.
      std::string text = renderTable(about, 0);
      std::size_t rule = text.find('\n');
      std::size_t after_rule = text.find('\n', rule + 1);
      std::cout << text.substr(0, rule + 1) << text.substr(after_rule + 1) << "\n";
    }
    unsigned width = options->width >= 0 ? static_cast<unsigned>(options->width) : terminalWidth();
    std::cout << render(items, format, width);
  });
}

}  // namespace kst
