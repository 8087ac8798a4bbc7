// SPDX-License-Identifier: MIT
#include <list>
#include <map>

#include "qxapi/ascii.h"
#include "tools/soif/formats/row.h"
#include "tools/soif/formats/table.h"
#include "tools/soif/marked_text.h"

namespace rdm::soif_tool {
namespace {

class TableWriter : public Writer {
 public:
  TableWriter(const RowSyntax &syntax, Output &output, const Conversion &conversion)
      : syntax_(syntax), output_(output), map_(conversion.map) {}

  bool surveys() const override { return true; }

  void survey(const Description &description) override {
    if (is_header(description)) return;
    auto before = order_.end();
    each_column(description, [&](const Key &key, const std::string &) { before = place_of(key, before); });
  }

  std::string write(const Description &description) override {
    begin();
    if (is_header(description)) return "";
    std::vector<std::string> cells(first_column + names_.size());
    cells[0] = marked(description.template_name);
    cells[1] = marked(description.url);
    each_column(description, [&](const Key &key, const std::string &value) {
      cells[first_column + columns_.at(key)] = marked(value);
    });
    output_.write(syntax_.print(cells));
    return "";
  }

  void end() override { begin(); }

 private:
  /// Key is an attribute and how often the description had it before.
  using Key = std::pair<std::string, int>;
  static constexpr size_t first_column = 2;  // after template and URL

  /// place_of returns the column of an attribute. A new one follows the column of the attribute before it, which keeps
  /// the order of most descriptions; or the first column of the same name, so that their order is kept always.
  std::list<Key>::iterator place_of(const Key &key, std::list<Key>::iterator before) {
    const auto [known, is_new] = places_.try_emplace(key, before);
    if (!is_new) return known->second;
    if (key.second > 0) before = places_.at({key.first, key.second - 1});
    return known->second = order_.insert(before == order_.end() ? order_.begin() : std::next(before), key);
  }

  template <typename Visitor>
  static void each_column(const Description &description, const Visitor &visit) {
    std::map<std::string, int> seen;
    for (const auto &[name, value] : description.attributes)
      if (!value.empty()) visit(Key(name, seen[name]++), value);
  }

  /// field_name returns the name of the column of URL or template.
  std::string field_name(const char *which) const {
    std::string name = map_.field_of(which);
    for (const std::string &other : names_)
      if (ascii::iequals(other, name) && !map_.knows(which)) return which;
    return name;
  }

  /// begin writes the names of the columns, once.
  void begin() {
    if (has_begun_) return;
    has_begun_ = true;
    for (const Key &key : order_) {
      columns_.emplace(key, names_.size());
      names_.push_back(map_.name_of(key.first));
    }
    std::vector<std::string> cells{marked(field_name(template_name)), marked(field_name(url_name))};
    for (const std::string &name : names_) cells.push_back(marked(name));
    output_.write(syntax_.print(cells));
  }

  const RowSyntax &syntax_;
  Output &output_;
  const NameMap &map_;
  std::list<Key> order_;  // of the columns of attributes
  std::map<Key, std::list<Key>::iterator> places_;
  // As of begin:
  std::vector<std::string> names_;
  std::map<Key, size_t> columns_;
  bool has_begun_ = false;
};

}  // namespace

std::unique_ptr<Writer> csv_writer(Output &output, const Conversion &conversion) {
  return std::make_unique<TableWriter>(csv_rows, output, conversion);
}

std::unique_ptr<Writer> tsv_writer(Output &output, const Conversion &conversion) {
  return std::make_unique<TableWriter>(tsv_rows, output, conversion);
}

}  // namespace rdm::soif_tool
