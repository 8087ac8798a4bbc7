// SPDX-License-Identifier: MIT
#include "fuzz/soif_formats.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "catalog/os/error.h"
#include "fuzz/fuzz.h"
#include "tools/soif/conversion.h"

namespace rdm::fuzz {
namespace {

using namespace soif_tool;

using Descriptions = std::vector<Description>;

class Collector : public Taker {
 public:
  explicit Collector(Descriptions &found) : found_(found) {}
  void take(Description &description, const Place &, std::string_view) override {
    if (fault_of(description).empty()) found_.push_back(std::move(description));
  }
  void reject(const Place &, const std::string &, std::string_view) override {}

 private:
  Descriptions &found_;
};

Descriptions read(const char *format, std::string_view text) {
  Descriptions found;
  Collector collector(found);
  ByteSource source(
      [&](char *bytes, size_t size) {
        const size_t got = text.copy(bytes, std::min<size_t>(size, 7));
        text.remove_prefix(got);
        return got;
      },
      "input");
  try {
    format_named(format).read(source, {}, collector);
  } catch (const catalog::Failure &) {
  }
  return found;
}

std::string write(const char *format, const Descriptions &descriptions) {
  std::ostringstream out, errors;
  const Console console{-1, out, errors, false};
  const Conversion conversion;
  Output output({}, console);
  const auto writer = format_named(format).make_writer(output, conversion);
  for (const Description &each : descriptions) writer->survey(each);
  for (const Description &each : descriptions) writer->write(each);
  writer->end();
  return out.str();
}

/// read_checked reads bytes, and checks that SOIF holds the descriptions.
Descriptions read_checked(const char *format, std::string_view bytes) {
  Descriptions found = read(format, bytes);
  for (const Description &description : found) {
    const auto object = catalog::ObjectView::read_owned(soif_of(description));
    require(object && description_of(*object) == description, "SOIF changed a description");
  }
  return found;
}

}  // namespace

void check_format(const char *format, std::string_view bytes, bool is_lossless) {
  Descriptions found = read_checked(format, bytes);
  if (!is_lossless) found = read(format, write(format, found));
  require(read(format, write(format, found)) == found, "the format changed a description");
}

void check_read(const char *format, std::string_view bytes) { read_checked(format, bytes); }

}  // namespace rdm::fuzz
