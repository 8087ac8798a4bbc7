// SPDX-License-Identifier: MIT
#include <libcs/log.h>

#include "service/csid.h"
#include "service/message.h"

using namespace rdm;

namespace {

struct MessageHandler {
  int32_t type;
  rdm_handler handler;
};

/// The supported messages, ended by type 0. Only programs that link the library import, through rds_rd_response; so
/// rd-response has no row.
constexpr MessageHandler RDM_MsgHdls[] = {
    {RDM_RD_REQUEST, rds_rd_request},
    {RDM_RD_DELETE_REQUEST, nullptr},
    {RDM_RD_RESPONSE, nullptr},
    {RDM_RD_DELETE_RESPONSE, nullptr},
    {RDM_SERVER_REQUEST, sd_request},
    {RDM_SERVER_RESPONSE, nullptr},
    {RDM_SCHEMA_REQUEST, schema_request},
    {RDM_SCHEMA_RESPONSE, nullptr},
    {RDM_TAXONOMY_REQUEST, tax_request},
    {RDM_TAXONOMY_RESPONSE, nullptr},
    {RDM_STATUS_REQUEST, status_ok},
    {RDM_STATUS_RESPONSE, nullptr},
    {RDM_UNKNOWN, nullptr},
};

rdm_handler find_handler(int32_t type) {
  for (const MessageHandler *row = RDM_MsgHdls; row->type != RDM_UNKNOWN; ++row)
    if (row->type == type && row->handler != nullptr) return row->handler;
  return rdm_msg_handler_default;
}

/// A description file that the service sends.
struct Description {
  const char *key;          // the parameter of the catalog service with the file's path
  const char *sent;         // transaction-log text
  int32_t response_type;    // of the answer without a file
  const char *unavailable;  // its error message
};

/// name_file makes a file, which the buffer does not own, the content of an empty buffer.
void name_file(csio *output, HostText path, const struct stat &status) {
  output->flags = CSIO_FILE;
  output->filename = path.release();
  output->remove_file = 0;
  output->length = static_cast<uint32_t>(status.st_size);
}

/// fits returns true if the size of a file fits the 32-bit length of an answer.
bool fits(const char *path, const struct stat &status) {
  if (status.st_size <= INT64_C(0xFFFFFFFF)) return true;
  CSLOG(CSLOG_ERROR, "rdmlib", "Description is too large to be sent: %s: %lld bytes\n", path,
        static_cast<long long>(status.st_size));
  return false;
}

int32_t describe(const Description &description, rdmhdr *header, csio *output, Session *sn, Request *rq) {
  const char *path = csid_findval(description.key, header->csid);
  csio_reset(output);
  struct stat status;
  const bool is_there = path != nullptr && host_stat(path, &status) == 0;
  HostText copy(is_there && fits(path, status) ? host_strdup(path) : nullptr);
  if (copy) {
    name_file(output, std::move(copy), status);
    rdm_log_add(description.sent, nullptr, nullptr, sn, rq);
  } else {
    rdm_answer(header, description.response_type, description.unavailable);
    rdmhdr_print(header, output);
  }
  return 0;
}

}  // namespace

int rdm_get_response(rdmhdr *header, csio *input, Session *sn, Request *rq, csio *output, int32_t *gzip,
                     int32_t *status) noexcept {
  *gzip = 0;
  *status = find_handler(header->type)(header, input, output, sn, rq);
  return 0;
}

int32_t rdm_msg_handler_default(rdmhdr *header, csio *, csio *output, Session *, Request *) noexcept {
  char text[128];
  host_format(text, sizeof text, "RDM-Type=%s is not supported by this RDM server.", rdm_type_name(header->type));
  rdm_answer(header, RDM_STATUS_RESPONSE, text);
  csio_reset(output);
  rdmhdr_print(header, output);
  return 0;
}

int32_t status_ok(rdmhdr *header, csio *, csio *output, Session *sn, Request *rq) noexcept {
  csio_reset(output);
  rdm_answer(header, RDM_STATUS_RESPONSE, nullptr);
  rdmhdr_print(header, output);
  append_text(output, "\n\nOnline.\n");
  csio_finish(output);
  rdm_log_add("STATUS OK sent", nullptr, nullptr, sn, rq);
  return 0;
}

int32_t status_illegal(rdmhdr *header, csio *, csio *output, Session *sn, Request *rq) noexcept {
  csio_reset(output);
  rdm_answer(header, RDM_STATUS_RESPONSE, "Illegal RDM interaction.");
  rdmhdr_print(header, output);
  rdm_log_add("STATUS Illegal sent", nullptr, nullptr, sn, rq);
  return 0;
}

int32_t sd_request(rdmhdr *header, csio *, csio *output, Session *sn, Request *rq) noexcept {
  static constexpr Description server{"server-description", "SERVER sent", RDM_SERVER_RESPONSE,
                                      "Server description is unavailable."};
  return describe(server, header, output, sn, rq);
}

int32_t schema_request(rdmhdr *header, csio *, csio *output, Session *sn, Request *rq) noexcept {
  static constexpr Description schema{"schema-description", "Sent Schema", RDM_SCHEMA_RESPONSE,
                                      "Schema description is unavailable."};
  return describe(schema, header, output, sn, rq);
}

int32_t tax_request(rdmhdr *header, csio *, csio *output, Session *sn, Request *rq) noexcept {
  static constexpr Description taxonomy{"taxonomy-description", "Sent Taxonomy", RDM_TAXONOMY_RESPONSE,
                                        "Taxonomy is unavailable."};
  return describe(taxonomy, header, output, sn, rq);
}

int rdm_encode_gzip(void) noexcept { return 0; }
int rdm_decode_gzip(void) noexcept { return 0; }
void run_rdmgr_request(void) noexcept {}
