// SPDX-License-Identifier: MIT
#include "tools/rdmgather/about_pdf.h"

#include "tools/rdmgather/child.h"
#include "tools/rdmgather/plain_text.h"

namespace rdm::gather {
namespace {

constexpr Limits poppler_limits{std::chrono::seconds(10), 1 << 15};
constexpr char standard_input[] = "/dev/stdin";  // no file name becomes an option

/// field_in returns the value of a field of pdfinfo: "Title:   The value".
std::string field_in(const std::string &lines, const std::string &name) {
  const std::string start = "\n" + name + ":";
  const std::string text = "\n" + lines;
  const size_t at = text.find(start);
  if (at == std::string::npos) return "";
  const size_t value = at + start.size();
  return plain_text(std::string_view(text).substr(value, text.find('\n', value) - value), longest_title);
}

}  // namespace

About about_pdf(int descriptor) {
  About about;
  if (const auto fields = output_of({"pdfinfo", "-enc", "UTF-8", standard_input}, descriptor, poppler_limits)) {
    about.title = field_in(*fields, "Title");
    about.author = field_in(*fields, "Author");
  }
  if (const auto text =
          output_of({"pdftotext", "-q", "-enc", "UTF-8", "-l", "3", standard_input, "-"}, descriptor, poppler_limits))
    about.description = plain_text(*text, longest_description);
  return about;
}

}  // namespace rdm::gather
