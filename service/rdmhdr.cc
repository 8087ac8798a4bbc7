// SPDX-License-Identifier: MIT
#include <cstring>

#include <libcs/log.h>

#include "libcs/guard.h"
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

void insert(SOIF *object, const char *name, const char *value) {
  if (value != nullptr) soif_insert(object, name, value, static_cast<int32_t>(std::strlen(value)));
}

char *copy_of(const char *text) { return text != nullptr ? host_strdup(text) : nullptr; }

/// read_object parses the first object of the header text. Returns null if it is missing or malformed. If more input
/// follows, it appends a NUL, so an object still open at header_limit is rejected.
SoifPtr read_object(csio *io) {
  char text[header_limit + 1] = {};
  const int32_t length = csio_copy(io, text, header_limit);
  if (length < 1) {
    CSLOG(CSLOG_ERROR, "rdmhdr", "No data for header.\n");
    return nullptr;
  }
  const bool cut = io->position < io->length;
  SoifReader reader(std::string_view(text, static_cast<size_t>(length) + (cut ? 1 : 0)));
  SoifPtr object = reader.next();
  if (!object || reader.position() > length) {
    CSLOG(CSLOG_ERROR, "rdmhdr", "Invalid RDMHEADER specification...\n");
    return nullptr;
  }
  if (!ascii::iequals(object->template_name, "RDMHEADER")) {
    CSLOG(CSLOG_ERROR, "rdmhdr", "Mismatched RDMHEADER specification: %s\n", LogText(object->template_name).c_str());
    return nullptr;
  }
  return object;
}

/// check_version returns 0, or the result of rdmhdr_parse for a missing or unsupported version.
int check_version(const SOIF *object) {
  const char *version = soif_findval(object, "rdm-version");
  if (version == nullptr) {
    CSLOG(CSLOG_ERROR, "rdmhdr", "No rdm-version?\n");
    return 1;
  }
  if (ascii::iequals(version, supported_version)) return 0;
  CSLOG(CSLOG_ERROR, "rdmhdr", "Unsupported rdm-version: '%s'\n", LogText(version).c_str());
  return 2;
}

void take_fields(const SOIF *object, const char *default_csid, rdmhdr *h) {
  if (const char *type = soif_findval(object, "rdm-type")) h->type = type_of_name(type);
  h->query_language = copy_of(soif_findval(object, "rdm-query-language"));
  h->error_message = copy_of(soif_findval(object, "rdm-error-message"));
  if (const char *code = soif_findval(object, "rdm-error-code")) h->error_code = ascii::to_int32(code);
  const char *csid = soif_findval(object, "catalog-service-id");
  if (csid == nullptr && default_csid != nullptr && *default_csid != '\0') csid = default_csid;
  h->csid = host_strdup(csid != nullptr ? csid : "unknown");
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
  for (char *text : {h->version, h->query_language, h->error_message, h->response_interpret, h->csid}) host_free(text);
  *h = rdmhdr{};
  h->version = host_strdup(supported_version);
}

void rdmhdr_destroy(rdmhdr *h) noexcept {
  if (h == nullptr) return;
  rdmhdr_reset(h);
  host_free(h->version);
  host_free(h);
}

int rdmhdr_print(const rdmhdr *h, csio *io) noexcept {
  // With one bucket, attributes print in the order of insertion.
  if (const SoifPtr object = make_soif("RDMHEADER", "-", 1)) {
    insert(object.get(), "rdm-version", supported_version);
    insert(object.get(), "rdm-type", rdm_type_name(h->type));
    insert(object.get(), "rdm-query-language", h->query_language);
    insert(object.get(), "rdm-response-interpret", h->response_interpret);
    insert(object.get(), "catalog-service-id", h->csid);
    insert(object.get(), "rdm-error-message", h->error_message);
    char code[24];
    host_itoa(h->error_code, code);
    if (h->error_code > 0) insert(object.get(), "rdm-error-code", code);
    SoifWriter(io).print(object.get());
  }
  append_text(io, "\n\n");
  csio_append(io, nullptr, 0);
  return 0;
}

int rdmhdr_parse(csio *io, rdmhdr *h) noexcept {
  const char *default_csid = csid_default(nullptr);
  rdmhdr_reset(h);
  const SoifPtr object = read_object(io);
  if (!object) return 1;
  if (const int failure = check_version(object.get())) return failure;
  take_fields(object.get(), default_csid, h);
  return 0;
}
