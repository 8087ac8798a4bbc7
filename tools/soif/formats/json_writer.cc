// SPDX-License-Identifier: MIT
#include <set>

#include "tools/soif/base64.h"
#include "tools/soif/formats/json.h"
#include "tools/soif/json_text.h"

namespace rdm::soif_tool {
namespace {

/// json_value returns a text as a JSON value.
std::string json_value(std::string_view text) {
  return is_utf8(text) ? json_string(text) : R"({"base64":")" + base64_of(text) + "\"}";
}

/// Member is a member of the object: one attribute, or `count` numbered instances from the first on.
struct Member {
  std::string name;
  size_t first, count;
  bool is_list;
};
using AttributesInOrder = std::vector<Attribute>;

/// instances_at returns how many attributes from one on are the instances 1, 2 and so on of the same name.
size_t instances_at(const AttributesInOrder &attributes, size_t first) {
  const std::string_view base = instance_of(attributes[first].name).base;
  size_t count = 0;
  for (; first + count < attributes.size(); ++count) {
    const Instance instance = instance_of(attributes[first + count].name);
    if (instance.base != base || instance.number != std::to_string(count + 1)) break;
  }
  return count;
}

std::vector<Member> grouped(const AttributesInOrder &attributes) {
  std::vector<Member> members;
  for (size_t i = 0; i < attributes.size(); i += members.back().count) {
    const size_t count = instances_at(attributes, i);
    const std::string &name = attributes[i].name;
    members.push_back(
        {count == 0 ? name : std::string(instance_of(name).base), i, std::max<size_t>(count, 1), count > 0});
  }
  return members;
}

std::vector<Member> ungrouped(const AttributesInOrder &attributes) {
  std::vector<Member> members;
  for (size_t i = 0; i < attributes.size(); ++i) members.push_back({attributes[i].name, i, 1, false});
  return members;
}

/// take_names gives members the names of the other format. Returns false if two have the same, or one is not UTF-8.
bool take_names(std::vector<Member> &members, const NameMap &map) {
  std::set<std::string> names;
  for (Member &member : members) {
    member.name = map.name_of(member.name);
    if (!is_utf8(member.name) || !names.insert(member.name).second) return false;
  }
  return true;
}

std::string list_of(const AttributesInOrder &attributes, const Member &member) {
  std::string text;
  for (size_t i = 0; i < member.count; ++i)
    text += (i == 0 ? "[" : ",") + json_value(attributes[member.first + i].value);
  return text + "]";
}

std::string object_of(const AttributesInOrder &attributes, const std::vector<Member> &members) {
  std::string text;
  for (const Member &member : members)
    text += (text.empty() ? "" : ",") + json_string(member.name) + ":" +
            (member.is_list ? list_of(attributes, member) : json_value(attributes[member.first].value));
  return "{" + text + "}";
}

std::string pairs_of(const AttributesInOrder &attributes, const NameMap &map) {
  std::string text;
  for (const auto &[name, value] : attributes)
    text += (text.empty() ? "" : ",") + ("{\"name\":" + json_value(map.name_of(name))) +
            ",\"value\":" + json_value(value) + "}";
  return "[" + text + "]";
}

std::string attributes_json(const AttributesInOrder &attributes, const NameMap &map) {
  for (const auto &arrange : {grouped, ungrouped})
    if (std::vector<Member> members = arrange(attributes); take_names(members, map))
      return object_of(attributes, members);
  return pairs_of(attributes, map);
}

class JsonWriter : public Writer {
 public:
  JsonWriter(Output &output, const Conversion &conversion) : output_(output), map_(conversion.map) {}
  std::string write(const Description &description) override {
    output_.write((is_first_ ? "[\n" : ",\n") + json_of(description, map_));
    is_first_ = false;
    return "";
  }
  void end() override { output_.write(is_first_ ? "[]\n" : "\n]\n"); }

 private:
  Output &output_;
  const NameMap &map_;
  bool is_first_ = true;
};

class NdjsonWriter : public Writer {
 public:
  NdjsonWriter(Output &output, const Conversion &conversion) : output_(output), map_(conversion.map) {}
  std::string write(const Description &description) override {
    output_.write(json_of(description, map_) + "\n");
    return "";
  }

 private:
  Output &output_;
  const NameMap &map_;
};

}  // namespace

std::string json_of(const Description &description, const NameMap &map) {
  return "{" + json_string(map.field_of(template_name)) + ":" + json_value(description.template_name) + "," +
         json_string(map.field_of(url_name)) + ":" + json_value(description.url) +
         ",\"attributes\":" + attributes_json(description.attributes, map) + "}";
}

std::unique_ptr<Writer> json_writer(Output &output, const Conversion &conversion) {
  return std::make_unique<JsonWriter>(output, conversion);
}

std::unique_ptr<Writer> ndjson_writer(Output &output, const Conversion &conversion) {
  return std::make_unique<NdjsonWriter>(output, conversion);
}

}  // namespace rdm::soif_tool
