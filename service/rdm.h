// SPDX-License-Identifier: MIT
/*
 * The RDM service: the plug-in's entries and the procedures that they call.
 *
 * A host loads the library, calls rdm_init once and then, for each request under /rdm/, rdm_type, rdm_service and
 * rdm_log. Only one request at a time is inside rdm_service_crit, so the code below rdm_service needs no locks. Only
 * rdm_log runs concurrently, in a section of its own.
 *
 * Every request is answered with HTTP status 200 and an RDM message; errors are reported in its "rdm-error-message".
 * Request statuses are HOST_DONE, HOST_ABORT and HOST_NOT_HANDLED.
 */
#ifndef SERVICE_RDM_H
#define SERVICE_RDM_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Entries of the plug-in ---- */

/// rdm_service_crit admits one request at a time, rdm_log_crit one line of the transaction log. The first rdm_init_real
/// creates them; later calls reuse them.
extern host_crit *rdm_log_crit, *rdm_service_crit;

/// logfile is the path of the transaction log, empty if there is none; logfd is its descriptor, or -1.
extern char logfile[1024];
extern host_fd logfd;

/// cs_csidcf is the path of the CSID configuration file, owned.
extern char *cs_csidcf;

/// rdm_init reads the service configuration file that `pb` names as "config" and initialises the service from it.
/// Returns 0; or -1, with the reason in `pb` ("error"), on standard error or in the host's error log.
int rdm_init(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_init_real initialises the service from a configuration block: diagnostic log, critical sections, environment of
/// child commands, transaction log, catalog services, schema. Returns 0, or -1; the steps before a failure are not
/// undone.
int rdm_init_real(pblock *config, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_service answers one request inside rdm_service_crit, which is null before rdm_init. It then knows no catalog
/// service and refuses every request. Returns a request status.
int rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// _real_rdm_service is rdm_service without the critical section.
int _real_rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_type sets the content type of a request under /rdm/ to the type of RDM messages. Returns HOST_DONE, or
/// HOST_NOT_HANDLED for any other URI.
int rdm_type(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log appends the line that rdm_log_add left in the request to the transaction log, inside rdm_log_crit. Always
/// returns 0.
int rdm_log(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/* ---- Intake, delivery, transaction log ---- */

/// rdm_stop refuses a request: it answers with a status-response that carries `message` (null: "RDM Server Error"),
/// reports the message to the host under `function`, and returns `value`.
int rdm_stop(const char *message, const char *function, int value, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_validate_uri returns 1 if a message of `type` may be sent to `uri`, else 0.
int rdm_validate_uri(const char *uri, int32_t type) QX_NOEXCEPT;

/// rdm_send_http_header sends status 200 with the content type and the content length, unless they are set already; a
/// length of 0 is not sent. Returns the result of host_start_response.
int rdm_send_http_header(uint32_t content_length, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_send_result sends `result`, after the HTTP header if `send_header` is not 0, and destroys it. Returns 0, or -1.
int rdm_send_result(int send_header, csio *result, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log_add stores a line for rdm_log in the request; null texts print as "-". Returns 0, or -1 if allocation fails.
int rdm_log_add(const char *message, const char *second, const char *third, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log_terminate closes the transaction log inside rdm_log_crit, so that no other thread is writing to the
/// descriptor.
void rdm_log_terminate(void) QX_NOEXCEPT;

/* ---- RDM header ---- */

/// Message types. Update requests and responses have the codes of plain RD requests and responses.
enum {
  RDM_UNKNOWN = 0,
  RDM_RD_REQUEST = 1,
  RDM_RD_DELETE_REQUEST = 2,
  RDM_RD_RESPONSE = 3,
  RDM_RD_DELETE_RESPONSE = 4,
  RDM_SERVER_REQUEST = 5,
  RDM_SERVER_RESPONSE = 6,
  RDM_SCHEMA_REQUEST = 7,
  RDM_SCHEMA_RESPONSE = 8,
  RDM_TAXONOMY_REQUEST = 9,
  RDM_TAXONOMY_RESPONSE = 10,
  RDM_STATUS_REQUEST = 11,
  RDM_STATUS_RESPONSE = 12
};

/// rdmhdr is the header of an RDM message. Its texts are owned blocks of the host allocator, or null.
typedef struct rdmhdr {
  char *version; /* "1.0" after a reset; not printed */
  int32_t type;
  char *query_language;
  char *response_interpret; /* printed, but not parsed */
  char *csid;
  char *error_message;
  int32_t error_code; /* printed if above 0 */
} rdmhdr;

/// rdmhdr_create stores a new record with every field 0, or null if allocation fails.
void rdmhdr_create(rdmhdr **out) QX_NOEXCEPT;

/// rdmhdr_reset releases and clears every field, then sets the version.
void rdmhdr_reset(rdmhdr *h) QX_NOEXCEPT;

/// rdmhdr_destroy releases the record; null is ignored.
void rdmhdr_destroy(rdmhdr *h) QX_NOEXCEPT;

/// rdmhdr_print appends the header and an empty line to `io`. Always returns 0.
int rdmhdr_print(const rdmhdr *h, csio *io) QX_NOEXCEPT;

/// rdmhdr_parse fills the record from the first object in the next 1023 bytes of `io`. Returns 0; 1 if the header is
/// missing or malformed; 2 if its version is not 1.0. After a failure, the record is as after a reset.
int rdmhdr_parse(csio *io, rdmhdr *h) QX_NOEXCEPT;

/* ---- Message handlers ---- */

/// rdm_handler answers a message. It may reset and reuse `header`. Returns 0 if `output` holds the whole answer, 1 if
/// the handler has sent the answer itself.
typedef int32_t (*rdm_handler)(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq);

/// rdm_get_response calls the handler of the header's type, sets `*gzip` to 0 and `*status` to the handler's result.
/// Always returns 0.
int rdm_get_response(rdmhdr *header, csio *input, Session *sn, Request *rq, csio *output, int32_t *gzip,
                     int32_t *status) QX_NOEXCEPT;

/// rdm_msg_handler_default answers that the message type is not supported.
int32_t rdm_msg_handler_default(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// status_ok answers a status-request; status_illegal answers that the interaction is illegal.
int32_t status_ok(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t status_illegal(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// sd_request, schema_request and tax_request answer with the file that the catalog service names as
/// "server-description", "schema-description" or "taxonomy-description".
int32_t sd_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t schema_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t tax_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_rd_request answers a gatherer's query with resource descriptions of the catalog.
int32_t rds_rd_request(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_rd_response imports the resource descriptions in `body` into the catalog. It is for programs; the service itself
/// does not accept these messages. A header of another type than rd-response or rd-delete-response aborts the process.
int32_t rds_rd_response(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_encode_gzip, rdm_decode_gzip and run_rdmgr_request are placeholders for compressed bodies and for a program that
/// creates the description files. They do nothing; the first two return 0.
int rdm_encode_gzip(void) QX_NOEXCEPT;
int rdm_decode_gzip(void) QX_NOEXCEPT;
void run_rdmgr_request(void) QX_NOEXCEPT;

/* ---- Catalog search ---- */

/// cs_dbentry is one entry of the index file, in host byte order. `time` is in seconds since 1970-01-01 UTC, `key` the
/// number of the resource description in the catalog database.
typedef struct cs_dbentry {
  uint32_t time, reserved1, key, reserved2, reserved3;
} cs_dbentry;

/// cs_dbindex is an index in memory, sorted by time. host_free releases its entries. An index with null entries is
/// empty, whatever its count.
typedef struct cs_dbindex {
  cs_dbentry *entries;
  uint32_t count;
} cs_dbindex;

/// cs_dbsearch_start loads the index of a catalog service. Returns 0, or 1; in both cases the caller releases the
/// entries. If the file is shorter than its count of entries, or a read fails, the result is 1, and `count` is the
/// count of the file. `entries` then holds those that were read, followed by zeros; it is null if more than 65,536
/// bytes are missing or allocation fails.
int cs_dbsearch_start(const char *csid, cs_dbindex *index) QX_NOEXCEPT;

/// cs_dbsearch returns the position of the first entry to send for a since query: -1 if none is late enough or the
/// index is empty, the count if the search narrows to the last entry.
int32_t cs_dbsearch(const cs_dbindex *index, time_t since) QX_NOEXCEPT;

/// send_since sends an rd-response with the descriptions changed since a time (0: all). `*count` is the limit on entry
/// (0: no limit, negative: no descriptions) and the number sent on return, `*bytes` the length of the answer. Returns
/// -1 if allocation fails before anything is sent, otherwise the result of the last rdm_send_result.
int send_since(const char *csid, cs_dbindex *index, time_t since, char **attributes, int32_t *count, uint32_t *bytes,
               Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_send_rd prints the descriptions of a list of database keys to `output`, limited to the attributes of a
/// null-terminated list (null or empty: all). Returns the number printed.
int32_t rds_send_rd(const char *csid, cslist *keys, char **attributes, csio *output) QX_NOEXCEPT;

/// cs_dbsearch_log adds the transaction-log line of an RD request.
void cs_dbsearch_log(int32_t count, uint32_t bytes, time_t since, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_qmgr_do_error answers a query in an unsupported language. Always returns 0.
int32_t rds_qmgr_do_error(rdmhdr *header, csio *input, csio *response) QX_NOEXCEPT;

/// rds_status_ok answers with a status-response that carries `text` and, unless it is null, `error_message`. Always
/// returns 0.
int32_t rds_status_ok(const char *text, const char *error_message, rdmhdr *header, csio *input, csio *response,
                      Session *sn, Request *rq) QX_NOEXCEPT;

QX_END

#endif
