// SPDX-License-Identifier: MIT
#include <algorithm>
#include <set>

#include "tools/soif/formats/dublin_core.h"
#include "tools/soif/marked_text.h"

namespace rdm::soif_tool {
namespace {

constexpr size_t most_names = 20;  // in the remark

bool is_xml_control(char c) { return static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n' && c != '\r'; }

/// xml_text returns a text that an XML document can hold: not U+FFFE, U+FFFF and most control characters.
std::string xml_text(std::string_view text) {
  const bool is_foreign = std::any_of(text.begin(), text.end(), is_xml_control) ||
                          text.find("\xEF\xBF\xBE") != std::string_view::npos ||
                          text.find("\xEF\xBF\xBF") != std::string_view::npos;
  return is_foreign ? marked_bytes(text) : marked(text);
}

std::string escaped_for_xml(std::string_view text) {
  std::string xml;
  for (const char c : text) switch (c) {
      case '&':
        xml += "&amp;";
        break;
      case '<':
        xml += "&lt;";
        break;
      case '>':
        xml += "&gt;";
        break;
      case '\r':
        xml += "&#13;";
        break;  // a parser makes a newline of CR itself
      default:
        xml += c;
    }
  return xml;
}

bool is_xml_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

std::string element(const std::string &name, std::string_view value) {
  const std::string text = xml_text(value);
  const bool has_blanks = !text.empty() && (is_xml_space(text.front()) || is_xml_space(text.back()));
  return "<dc:" + name + (has_blanks ? " xml:space=\"preserve\">" : ">") + escaped_for_xml(text) + "</dc:" + name +
         ">\n";
}

class DublinCoreWriter : public Writer {
 public:
  DublinCoreWriter(Output &output, const Conversion &conversion)
      : output_(output), map_(dublin_core_map(conversion.map)) {}

  std::string write(const Description &description) override {
    begin();
    if (is_header(description)) return "";
    std::string record = "<record>\n";
    add(record, url_name, description.url);
    for (const auto &[name, value] : description.attributes)
      if (!value.empty()) add(record, name, value);
    output_.write(record + "</record>\n");
    return "";
  }

  void end() override {
    begin();
    output_.write("</records>\n");
  }

  std::string remark() const override {
    std::string names;
    size_t count = 0;
    for (const std::string &name : left_out_)
      if (count++ < most_names) names += (names.empty() ? "" : ", ") + name;
    return names.empty() ? "" : "left out, without an element: " + names + (count > most_names ? ", ..." : "");
  }

 private:
  void begin() {
    if (has_begun_) return;
    has_begun_ = true;
    output_.write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<records xmlns:dc=\"" + std::string(dublin_core_space) +
                  "\">\n");
  }

  void add(std::string &record, std::string_view attribute, std::string_view value) {
    const std::string_view base =
        map_.knows(attribute) || attribute == url_name ? attribute : instance_of(attribute).base;
    const std::string name(instance_of(map_.name_of(base)).base);
    if (is_dublin_core(name))
      record += element(name, value);
    else if (left_out_.size() <= most_names)
      left_out_.emplace(attribute);
  }

  Output &output_;
  const NameMap map_;
  std::set<std::string, std::less<>> left_out_;
  bool has_begun_ = false;
};

}  // namespace

std::unique_ptr<Writer> dc_writer(Output &output, const Conversion &conversion) {
  return std::make_unique<DublinCoreWriter>(output, conversion);
}

}  // namespace rdm::soif_tool
