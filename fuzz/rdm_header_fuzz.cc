// SPDX-License-Identifier: MIT
/// Reads any bytes as the header of a message. The printed header must parse to the same header again.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "libcs/guard.h"
#include "service/rdm.h"

using namespace rdm;

namespace {

using HeaderPtr = std::unique_ptr<rdmhdr, Deleter<rdmhdr_destroy>>;

HeaderPtr make_header() {
  rdmhdr *header = nullptr;
  rdmhdr_create(&header);
  return HeaderPtr(header);
}

CsioPtr buffer_of(std::string_view bytes) {
  CsioPtr io = make_csio();
  csio_append(io.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
  return io;
}

std::string print(const rdmhdr *header) {
  const CsioPtr io = make_csio();
  rdmhdr_print(header, io.get());
  std::string text(io->length, '\0');
  csio_copy(io.get(), text.data(), static_cast<int32_t>(text.size()));
  return text;
}

/// text returns an empty string for null: neither is printed.
std::string_view text(const char *text, std::string_view none = {}) {
  return text != nullptr && *text != '\0' ? text : none;
}

/// same ignores fields that are not printed, such as error codes without an error.
bool same(const rdmhdr &one, const rdmhdr &other) {
  return one.type == other.type && text(one.query_language) == text(other.query_language) &&
         text(one.csid, "unknown") == text(other.csid, "unknown") &&
         text(one.error_message) == text(other.error_message) &&
         std::max(one.error_code, 0) == std::max(other.error_code, 0);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const HeaderPtr header = make_header(), again = make_header();
  const int result = rdmhdr_parse(buffer_of(fuzz::text(data, size)).get(), header.get());
  fuzz::require(result >= 0 && result <= 2, "rdmhdr_parse returned an undefined result");
  if (result != 0) return 0;
  const std::string once = print(header.get());
  // A printed header longer than the limit for reading cannot be read again.
  if (once.size() > 1023) return 0;
  fuzz::require(rdmhdr_parse(buffer_of(once).get(), again.get()) == 0, "a printed header cannot be parsed");
  fuzz::require(same(*again, *header), "printing and parsing changed a header");
  return 0;
}
