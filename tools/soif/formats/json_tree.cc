// SPDX-License-Identifier: MIT
#include "tools/soif/formats/json_tree.h"

#include <cstdint>
#include <utility>

#include <nlohmann/json.hpp>

namespace rdm::soif_tool {
namespace {

constexpr size_t deepest_value = 8;

/// Builder makes a value of the events of the parser. Its procedures return false to end the parsing.
class Builder : public nlohmann::json_sax<nlohmann::json> {
 public:
  bool null() override { return add({}); }
  bool boolean(bool value) override { return add_text(value ? "true" : "false"); }
  bool number_integer(int64_t value) override { return add_text(std::to_string(value)); }
  bool number_unsigned(uint64_t value) override { return add_text(std::to_string(value)); }
  bool number_float(double, const std::string &text) override { return add_text(text); }
  bool string(std::string &text) override { return add_text(std::move(text)); }
  bool binary(nlohmann::json::binary_t &) override { return false; }
  bool start_object(size_t) override { return open(JsonValue::Kind::object); }
  bool start_array(size_t) override { return open(JsonValue::Kind::list); }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool key(std::string &name) override {
    open_.back().names.push_back(std::move(name));
    return true;
  }
  bool parse_error(size_t position, const std::string &, const nlohmann::json::exception &error) override {
    // "[json.exception.parse_error.101] parse error at line 1, column 2: syntax error ...", or without a place.
    const std::string text = error.what();
    const size_t words = text.find(text.find("] parse error at ") == std::string::npos ? "] " : ": ");
    fault_ = {"not JSON: " + text.substr(words + 2), position - 1};
    return false;
  }

  const JsonFault &fault() const { return fault_; }
  JsonValue take() { return std::move(value_); }

 private:
  bool add_text(std::string text) { return add({JsonValue::Kind::text, std::move(text), {}, {}}); }

  bool add(JsonValue value) {
    (open_.empty() ? value_ : open_.back().items.emplace_back()) = std::move(value);
    return true;
  }

  bool open(JsonValue::Kind kind) {
    if (open_.size() == deepest_value) {
      fault_ = {"nested too deep", 0};
      return false;
    }
    open_.push_back({kind, {}, {}, {}});
    return true;
  }

  bool close() {
    JsonValue value = std::move(open_.back());
    open_.pop_back();
    return add(std::move(value));
  }

  JsonValue value_;
  std::vector<JsonValue> open_;  // lists and objects that are not closed yet
  JsonFault fault_;
};

}  // namespace

const JsonValue *JsonValue::member(std::string_view name) const {
  for (size_t i = 0; i < names.size(); ++i)
    if (names[i] == name) return &items[i];
  return nullptr;
}

std::variant<JsonValue, JsonFault> parse_json(std::string_view text) {
  Builder builder;
  if (!nlohmann::json::sax_parse(text.begin(), text.end(), &builder)) return builder.fault();
  return builder.take();
}

}  // namespace rdm::soif_tool
