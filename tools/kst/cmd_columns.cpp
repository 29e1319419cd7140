// kst columns: the log's field map ("V5_FIELD_MAP"), the columns 'kst show' prints, in order.
// The map is edited with the library's FieldMap and kept in the log's parameters.

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <set>

#include "Columns.h"
#include "Commands.h"
#include "Errors.h"
#include "Files.h"
#include "LogLoader.h"

namespace kst {
namespace {

// The text form names a column in at most three characters, sign included.
constexpr std::size_t kMaxToken = 3;

void print_map(kesta& db, FieldMap& map, unsigned width) {
  Grid grid{{"#", "name", "shown"}, {}};
  std::set<unsigned> listed;
  for (int i = 0; i < map.size(); ++i) {
    LightweightString<char> name = map.getName(i);
    unsigned field = db.get_fieldnum(name);
    if (field >= db.get_num_fields()) continue;
    listed.insert(field);
    grid.rows.push_back({std::to_string(field + 1), asText(name), map.isVisible(i) ? "yes" : "no"});
  }
  for (unsigned f = 0; f < db.get_num_fields(); ++f) {
    if (!listed.count(f)) grid.rows.push_back({std::to_string(f + 1), db.get_fieldname(f), "no"});
  }
  std::cout << renderTable(grid, width);
}

// Moves entry `from` to position `to`, keeping the order of the others.
void move_entry(FieldMap& map, int from, int to) {
  for (int j = from; j > to; --j) map.swap(j, j - 1);
}

int entry_of(kesta& db, FieldMap& map, unsigned field, bool visible_if_added) {
  LightweightString<char> name(db.get_fieldname(field));
  int at = map.getFieldIdx(name);
  if (at < 0) {
    map.append(name, visible_if_added);
    at = map.size() - 1;
  }
  return at;
}

// FieldMap reads at most three characters per column, so "-100" would come back as column 10.
void check_map_text(kesta& db, const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    std::size_t end = std::min(text.find(' ', at), text.size());
    std::string token = text.substr(at, end - at);
    if (token.size() > kMaxToken) {
      long number = std::labs(std::strtol(token.c_str(), nullptr, 10));
      throw Failure("the field map cannot keep column " +
                    inQuotes(db.get_fieldname(static_cast<unsigned>(number - 1))) + " (column " +
                    std::to_string(number) + "): it names shown columns up to 999 and hidden ones up to 99");
    }
    at = end + 1;
  }
}

}  // namespace

void addColumnsCommand(CLI::App& app, CommandTable& table) {
  struct Options {
    std::string file;
    std::string show;
    std::string hide;
    std::string order;
    bool reset = false;
    int width = -1;
    WriteOptions write;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("columns", "List or edit the columns a log shows (its field map)");
  command->add_option("file", options->file, "The log")->required()->type_name("FILE");
  command->add_option("--show", options->show, "Show these columns")->type_name("A,B,...");
  command->add_option("--hide", options->hide, "Hide these columns")->type_name("A,B,...");
  command->add_option("--order", options->order, "Put these columns first, in this order")->type_name("A,B,...");
  command->add_flag("--reset", options->reset, "Start from every column shown, in the log's order");
  command->add_option("--width", options->width, "Fit the listing in N columns")
      ->type_name("N")
      ->check(CLI::NonNegativeNumber);
  addWriteOptions(command, options->write);
  command->footer(
      wrap("Without --show, --hide, --order or --reset the field map is listed: the shown columns in their order, "
           "then the others. Edits are applied in the order --reset, --show, --hide, --order; the changed log is "
           "written with -o OUT or --in-place."));
  table.add(command, [options] {
    const bool editing = options->reset || !options->show.empty() || !options->hide.empty() || !options->order.empty();
    if (!editing) {
      if (options->write.in_place || !options->write.out.empty()) {
        throw UsageError("nothing to change: give --show, --hide, --order or --reset");
      }
      Zr::Ptr<kesta> db = loadLog(options->file);
      FieldMap map(*db);
      print_map(*db, map, options->width >= 0 ? static_cast<unsigned>(options->width) : terminalWidth());
      return;
    }
    Destination to = Destination::forLog(options->write, options->file);
    Zr::Ptr<kesta> db = loadLog(options->file);
    std::vector<unsigned> show = resolveColumns(*db, splitList(options->show), options->file);
    std::vector<unsigned> hide = resolveColumns(*db, splitList(options->hide), options->file);
    std::vector<unsigned> order = resolveColumns(*db, splitList(options->order), options->file);
    for (unsigned f : show) {
      for (unsigned g : hide) {
        if (f == g) throw UsageError("column " + inQuotes(db->get_fieldname(f)) + " is both shown and hidden");
      }
    }
    if (std::set<unsigned>(order.begin(), order.end()).size() != order.size()) {
      throw UsageError("--order names a column twice");
    }
    FieldMap map(*db);
    if (options->reset) {
      map.clear();
      for (unsigned f = 0; f < db->get_num_fields(); ++f) map.append(db->get_fieldname(f), true);
    }
    for (unsigned f : show) map.setVisible(entry_of(*db, map, f, true), true);
    for (unsigned f : hide) map.setVisible(entry_of(*db, map, f, false), false);
    for (std::size_t k = 0; k < order.size(); ++k) {
      move_entry(map, entry_of(*db, map, order[k], true), static_cast<int>(k));
    }
    std::string text = asText(map.asString());
    check_map_text(*db, text);
    db->set_param_val("V5_FIELD_MAP", text.c_str());
    saveLog(*db, to);
    note("field map: " + text);
  });
}

}  // namespace kst
