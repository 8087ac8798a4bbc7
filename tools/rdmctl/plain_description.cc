// SPDX-License-Identifier: MIT
#include "tools/rdmctl/plain_description.h"

#include <algorithm>
#include <istream>
#include <utility>
#include <vector>

#include "catalog/os/error.h"
#include "catalog/record.h"
#include "qxapi/ascii.h"
#include "qxapi/words.h"

namespace rdm::rdmctl {
namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view types[] = {"int", "serial", "date", "string", "float", "blob"};

struct Object {
  std::string name, url;
  std::vector<std::pair<std::string, std::string>> attributes;
};

std::string printed(const Object &object) {
  std::string text = "@" + object.name + " { " + object.url + "\n";
  for (const auto &[name, value] : object.attributes)
    text += catalog::attribute_head(name, value.size()) + value + "\n";
  return text + "}\n";
}

/// Part is a template that a kind of description consists of.
struct Part {
  std::string_view kind, template_name;
};
constexpr Part parts[] = {
    {"server", "SERVER"}, {"schema", "SCHEMA"}, {"taxonomy", "TAXONOMY"}, {"taxonomy", "CLASSIFICATION"}};

bool is_part(std::string_view kind, std::string_view template_name) {
  return std::any_of(std::begin(parts), std::end(parts), [&](const Part &part) {
    return part.kind == kind && ascii::iequals(part.template_name, template_name);
  });
}

/// is_name returns true if a text can be the name of an attribute or of a template.
bool is_name(std::string_view text) {
  return !text.empty() && text.find_first_of(" \t{}:=@") == std::string_view::npos;
}

/// PlainReader makes objects of lines.
class PlainReader {
 public:
  explicit PlainReader(const PlainDescription &wanted) : wanted_(wanted) {}

  void take(std::string_view line);
  const std::vector<Object> &objects() const { return objects_; }

 private:
  struct Level {
    size_t indent;
    std::string id;
  };
  [[noreturn]] void fail(const std::string &reason) const {
    throw catalog::Failure(wanted_.name + ":" + std::to_string(line_) + ": " + reason);
  }
  void add(std::string name, std::string_view value) {
    objects_[current_].attributes.emplace_back(std::move(name), value);
    can_continue_ = true;
  }
  void begin_object(std::string_view line);
  void continue_value(std::string_view line);
  void take_class(size_t indent, std::string_view line);
  void take_column(std::string_view name, std::string_view text);

  const PlainDescription &wanted_;
  int line_ = 0;
  std::vector<Object> objects_;
  size_t current_ = 0;           // the object that receives attributes
  bool can_continue_ = false;    // the last line was part of a value
  int columns_ = 0;              // of the current object
  std::vector<Level> parents_;   // of the next class
  std::string taxonomy_, base_;  // its id and URL
};

void PlainReader::take(std::string_view line) {
  ++line_;
  if (line.ends_with('\r')) line.remove_suffix(1);
  const std::string_view text = trim(line, blanks);
  if (text.empty() || line[0] == '#') return;
  const auto indent = static_cast<size_t>(text.data() - line.data());
  if (line[0] == '@') return begin_object(line.substr(1));
  if (objects_.empty()) fail("no object yet: begin with @TEMPLATE URL");
  if (wanted_.kind == "taxonomy" && text.starts_with("- ")) return take_class(indent, trim(text.substr(2), blanks));
  if (indent > 0) return continue_value(text);
  const size_t end = text.find_first_of(":=");
  const std::string_view name = trim(text.substr(0, end), blanks);
  if (end == std::string_view::npos || !is_name(name)) fail("not of the form NAME: VALUE");
  const std::string_view value = trim(text.substr(end + 1), blanks);
  if (text[end] == ':') return add(std::string(name), value);
  if (wanted_.kind != "schema") fail("only a schema has columns");
  take_column(name, value);
}

void PlainReader::begin_object(std::string_view line) {
  const std::vector<std::string_view> words = words_of(line, blanks);
  if (words.empty() || words.size() > 2 || !is_name(words[0])) fail("not of the form @TEMPLATE URL");
  if (!is_part(wanted_.kind, words[0]))
    fail("a " + wanted_.kind + " description has no object @" + std::string(words[0]));
  objects_.push_back({std::string(words[0]), words.size() > 1 ? std::string(words[1]) : "-", {}});
  current_ = objects_.size() - 1;
  can_continue_ = false;
  columns_ = 0;
}

void PlainReader::continue_value(std::string_view line) {
  if (!can_continue_) fail("an indented line continues a value, and there is none");
  objects_[current_].attributes.back().second += "\n" + std::string(line == "." ? "" : line);
}

/// take_class adds an object for a class. Attributes after it belong to it.
void PlainReader::take_class(size_t indent, std::string_view line) {
  const Object &taxonomy = objects_.front();
  const auto id_of = std::find_if(taxonomy.attributes.begin(), taxonomy.attributes.end(),
                                  [](const auto &attribute) { return attribute.first == "id"; });
  if (id_of == taxonomy.attributes.end()) fail("a class before the id of the taxonomy");
  while (!parents_.empty() && parents_.back().indent >= indent) parents_.pop_back();
  const size_t colon = line.find(':');
  const std::string id(trim(line.substr(0, colon), blanks));
  const std::string_view description =
      colon == std::string_view::npos ? std::string_view() : trim(line.substr(colon + 1), blanks);
  if (id.empty() || id.find_first_of(blanks) != std::string::npos) fail("not of the form - ID: DESCRIPTION");
  Object one{
      "CLASSIFICATION",
      taxonomy.url + "#" + id,
      {{"id", id}, {"parent-id", parents_.empty() ? "ROOT" : parents_.back().id}, {"taxonomy-id", id_of->second}}};
  if (!description.empty()) one.attributes.emplace_back("description", description);
  objects_.push_back(std::move(one));
  parents_.push_back({indent, id});
  current_ = objects_.size() - 1;
  can_continue_ = false;
}

void PlainReader::take_column(std::string_view name, std::string_view text) {
  std::vector<std::string_view> words = words_of(text, blanks);
  const bool is_internal = words.size() > 1 && words.back() == "internal";
  if (is_internal) words.pop_back();
  const size_t dot = words.empty() ? std::string_view::npos : words[0].find('.');
  if (words.size() > 2 || dot == std::string_view::npos || dot == 0 || dot + 1 == words[0].size())
    fail("not of the form NAME = TABLE.COLUMN [TYPE] [internal]");
  const std::string_view type = words.size() > 1 ? words[1] : "string";
  if (std::find(std::begin(types), std::end(types), type) == std::end(types))
    fail("unknown type " + std::string(type) + ": not one of int, serial, date, string, float, blob");
  const std::string number = "-" + std::to_string(++columns_);
  add("soif-attribute" + number, name);
  add("system-table-name" + number, words[0].substr(0, dot));
  add("system-column-name" + number, words[0].substr(dot + 1));
  add("data-type" + number, type);
  if (is_internal) add("is-internal" + number, "1");
  can_continue_ = false;
}

Object header_of(const PlainDescription &wanted) {
  Object header{"RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", wanted.kind + "-description-response"}}};
  if (!wanted.csid.empty()) header.attributes.emplace_back("catalog-service-id", wanted.csid);
  return header;
}

}  // namespace

std::string description_of(std::istream &text, const PlainDescription &wanted) {
  PlainReader reader(wanted);
  for (std::string line; std::getline(text, line);) reader.take(line);
  if (text.bad()) throw catalog::system_failure("cannot read " + wanted.name);
  std::string message = printed(header_of(wanted));
  for (const Object &object : reader.objects()) message += "\n" + printed(object);
  return message;
}

}  // namespace rdm::rdmctl
