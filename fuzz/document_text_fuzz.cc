// SPDX-License-Identifier: MIT
/// Whatever a document contains, what it says about itself must be short UTF-8 without control characters.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "qxapi/ascii.h"
#include "tools/rdmgather/about.h"
#include "tools/rdmgather/plain_text.h"
#include "tools/soif/json_text.h"

using namespace rdm;

namespace {

void check(const std::string &text, size_t limit) {
  fuzz::require(text.size() <= limit, "a text is too long");
  fuzz::require(soif_tool::is_utf8(text), "a text is not UTF-8");
  fuzz::require(std::none_of(text.begin(), text.end(), ascii::is_control), "a text has control characters");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  for (const auto about : {gather::about_html, gather::about_markdown, gather::about_text}) {
    const gather::About found = about(fuzz::text(data, size));
    check(found.title, gather::longest_title);
    check(found.author, gather::longest_title);
    check(found.description, gather::longest_description);
  }
  return 0;
}
