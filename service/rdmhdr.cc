// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstring>

#include <libcs/log.h>

#include "libcs/guard.h"
#include "libcs/soif/borrowed.h"
#include "libcs/soif/field_reader.h"
#include "qxapi/ascii.h"
#include "qxapi/log_text.h"
#include "service/csid.h"
#include "service/message.h"

using namespace rdm;

namespace {

struct TypeName {
  int32_t type;
  const char *name;
};

/// Every accepted name, in the order of comparison; the first name of a type is the printed one.
constexpr TypeName type_names[] = {
    {RDM_RD_REQUEST, "rd-request"},
    {RDM_RD_REQUEST, "rd-update-request"},
    {RDM_RD_DELETE_REQUEST, "rd-delete-request"},
    {RDM_RD_RESPONSE, "rd-response"},
    {RDM_RD_RESPONSE, "rd-update-response"},
    {RDM_RD_DELETE_RESPONSE, "rd-delete-response"},
    {RDM_SERVER_REQUEST, "server-description-request"},
    {RDM_SERVER_REQUEST, "server-request"},
    {RDM_SERVER_RESPONSE, "server-description-response"},
    {RDM_SERVER_RESPONSE, "server-response"},
    {RDM_SCHEMA_REQUEST, "schema-description-request"},
    {RDM_SCHEMA_REQUEST, "schema-request"},
    {RDM_SCHEMA_RESPONSE, "schema-description-response"},
    {RDM_SCHEMA_RESPONSE, "schema-response"},
    {RDM_TAXONOMY_REQUEST, "taxonomy-description-request"},
    {RDM_TAXONOMY_REQUEST, "taxonomy-request"},
    {RDM_TAXONOMY_RESPONSE, "taxonomy-description-response"},
    {RDM_TAXONOMY_RESPONSE, "taxonomy-response"},
    {RDM_STATUS_REQUEST, "status-request"},
    {RDM_STATUS_RESPONSE, "status-response"},
};

constexpr char supported_version[] = "1.0";

/// The header must lie within this many bytes of the message.
constexpr int32_t header_limit = 1023;

int32_t type_of_name(const char *name) {
  for (const TypeName &row : type_names)
    if (ascii::iequals(row.name, name)) return row.type;
  return RDM_UNKNOWN;
}

char *copy_of(const char *text) { return text != nullptr ? host_strdup(text) : nullptr; }

/// HeaderText is the header at the read position of a message.
class HeaderText {
 public:
  /// The attributes that are read.
  enum Field { version, type, query_language, error_message, error_code, csid, field_count };

  explicit HeaderText(csio *io) noexcept
      : length_(static_cast<size_t>(std::max(csio_copy(io, text_, header_limit), 0))),
        is_cut_(io->position < io->length),
        reader_(text_, length_ + (is_cut_ ? 1 : 0)) {
    // If more input follows, the text goes on with a NUL, so an object still open at header_limit is rejected.
    text_[length_] = '\0';
  }

  /// parse returns true if the text begins with a header object; otherwise it logs the reason.
  bool parse() noexcept {
    if (length_ == 0) {
      CSLOG(CSLOG_ERROR, "rdmhdr", "No data for header.\n");
      return false;
    }
    if (!reader_.next(fields_) || (is_cut_ && reader_.left() == 0)) {
      CSLOG(CSLOG_ERROR, "rdmhdr", "Invalid RDMHEADER specification...\n");
      return false;
    }
    if (ascii::iequals(reader_.template_name(), "RDMHEADER")) return true;
    CSLOG(CSLOG_ERROR, "rdmhdr", "Mismatched RDMHEADER specification: %s\n", LogText(reader_.template_name()).c_str());
    return false;
  }

  /// value returns an attribute of the object, or null.
  const char *value(Field field) const noexcept { return fields_[field].value; }

 private:
  char text_[header_limit + 2];
  const size_t length_;
  const bool is_cut_;
  soif::FieldReader reader_;
  soif::Field fields_[field_count] = {{"rdm-version"},       {"rdm-type"},       {"rdm-query-language"},
                                      {"rdm-error-message"}, {"rdm-error-code"}, {"catalog-service-id"}};
};

/// check_version returns 0, or the result of rdmhdr_parse for a missing or unsupported version.
int check_version(const char *text) {
  if (text == nullptr) {
    CSLOG(CSLOG_ERROR, "rdmhdr", "No rdm-version?\n");
    return 1;
  }
  if (ascii::iequals(text, supported_version)) return 0;
  CSLOG(CSLOG_ERROR, "rdmhdr", "Unsupported rdm-version: '%s'\n", LogText(text).c_str());
  return 2;
}

void take_fields(const HeaderText &header, const char *default_csid, rdmhdr *h) {
  if (const char *name = header.value(HeaderText::type)) h->type = type_of_name(name);
  h->query_language = copy_of(header.value(HeaderText::query_language));
  h->error_message = copy_of(header.value(HeaderText::error_message));
  if (const char *code = header.value(HeaderText::error_code)) h->error_code = ascii::to_int32(code);
  const char *named = header.value(HeaderText::csid);
  if (named == nullptr && default_csid != nullptr && *default_csid != '\0') named = default_csid;
  h->csid = host_strdup(named != nullptr ? named : "unknown");
}

/// release releases every text but the version.
void release(const rdmhdr &h) {
  for (char *text : {h.query_language, h.error_message, h.response_interpret, h.csid}) host_free(text);
}

}  // namespace

const char *rdm::rdm_type_name(int32_t type) noexcept {
  for (const TypeName &row : type_names)
    if (row.type == type) return row.name;
  return "Unknown";
}

void rdm::rdm_answer(rdmhdr *header, int32_t type, const char *error_message) noexcept {
  rdmhdr_reset(header);
  header->type = type;
  header->error_message = copy_of(error_message);
}

void rdmhdr_create(rdmhdr **out) noexcept { *out = host_new<rdmhdr>().release(); }

void rdmhdr_reset(rdmhdr *h) noexcept {
  HostText version(h->version);
  release(*h);
  *h = rdmhdr{};
  const bool is_set = version && std::strcmp(version.get(), supported_version) == 0;
  h->version = is_set ? version.release() : host_strdup(supported_version);
}

void rdmhdr_destroy(rdmhdr *h) noexcept {
  if (h == nullptr) return;
  release(*h);
  host_free(h->version);
  host_free(h);
}

int rdmhdr_print(const rdmhdr *h, csio *io) noexcept {
  char code[24];
  host_itoa(h->error_code, code);
  soif::BorrowedObject<7> object("RDMHEADER", "-");
  object.add("rdm-version", supported_version);
  object.add("rdm-type", rdm_type_name(h->type));
  object.add("rdm-query-language", h->query_language);
  object.add("rdm-response-interpret", h->response_interpret);
  object.add("catalog-service-id", h->csid);
  object.add("rdm-error-message", h->error_message);
  object.add("rdm-error-code", h->error_code > 0 ? code : nullptr);
  SoifWriter(io).print(object.get());
  append_text(io, "\n\n");
  csio_append(io, nullptr, 0);
  return 0;
}

int rdmhdr_parse(csio *io, rdmhdr *h) noexcept {
  const char *default_csid = csid_default(nullptr);
  rdmhdr_reset(h);
  HeaderText header(io);
  if (!header.parse()) return 1;
  if (const int failure = check_version(header.value(HeaderText::version))) return failure;
  take_fields(header, default_csid, h);
  return 0;
}
