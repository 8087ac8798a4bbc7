// SPDX-License-Identifier: MIT
#include "tools/soif/formats.h"

#include <algorithm>
#include <sstream>

#include "tools/soif/conversion.h"

namespace rdm {
namespace {

using namespace soif_tool;

class Collector : public Taker {
 public:
  explicit Collector(Taken &taken) : taken_(taken) {}
  void take(Description &description, const Place &, std::string_view) override {
    taken_.descriptions.push_back(description);
  }
  void reject(const Place &place, const std::string &reason, std::string_view bytes) override {
    taken_.faults.push_back(std::to_string(place.line) + ":" + std::to_string(place.column) + ": " + reason);
    taken_.bytes.emplace_back(bytes);
  }

 private:
  Taken &taken_;
};

rc::Gen<std::string> text_of(std::vector<std::string> parts) {
  return rc::gen::map(rc::gen::container<std::vector<std::string>>(rc::gen::elementOf(std::move(parts))),
                      [](const std::vector<std::string> &words) {
                        std::string text;
                        for (const std::string &word : words) text += word;
                        return text;
                      });
}

rc::Gen<Attribute> attribute() {
  return rc::gen::build<Attribute>(
      rc::gen::set(&Attribute::name,
                   rc::gen::element<std::string>("a", "a", "a-1", "a-2", "a-3", "b", "b-1", "-1", "a-01", "a-1-1",
                                                 "\xFF", "\xC3\xA9", "url", "template", "base64", "title", "author")),
      rc::gen::set(&Attribute::value,
                   text_of({"",     "x",        " ",    "\t", "\n", "\r\n", "\r",          std::string(1, '\0'),
                            "\xFF", "\xC3\xA9", "\"",   ",",  "\\", "<",    "&",           ">",
                            "]]>",  "base64:",  "eA==", "{",  "}",  "\x01", "\xED\xA0\x80"})));
}

rc::Gen<Description> description() {
  return rc::gen::build<Description>(
      rc::gen::set(&Description::template_name, rc::gen::element<std::string>("FILE", "DOCUMENT", "\xFF", "{")),
      rc::gen::set(&Description::url,
                   rc::gen::element<std::string>("http://a/1", "-", "http://b/\xC3\xA9?a=\"b\",c", "x\xFFy", "a\\b<&")),
      rc::gen::set(&Description::attributes, rc::gen::container<std::vector<Attribute>>(attribute())));
}

}  // namespace

Taken read_in(const std::string &format, const std::string &text, const Conversion &conversion, size_t piece) {
  size_t at = 0;
  const auto read = [&](char *bytes, size_t size) {
    const size_t got = text.copy(bytes, std::min(size, piece), at);
    at += got;
    return got;
  };
  Taken taken;
  Collector collector(taken);
  ByteSource source(read, "text");
  format_named(format).read(source, conversion, collector);
  return taken;
}

std::string written_in(const std::string &format, const std::vector<Description> &descriptions,
                       const Conversion &conversion) {
  std::ostringstream out, errors;
  const Console console{-1, out, errors, false};
  Output output({}, console);
  const std::unique_ptr<Writer> writer = format_named(format).make_writer(output, conversion);
  for (const Description &each : descriptions) writer->survey(each);
  for (const Description &each : descriptions) writer->write(each);
  writer->end();
  return out.str();
}

rc::Gen<std::vector<Description>> random_descriptions() {
  return rc::gen::scale(0.1, rc::gen::container<std::vector<Description>>(description()));
}

}  // namespace rdm
