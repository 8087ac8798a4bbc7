// SPDX-License-Identifier: MIT
/*
 * The RDM service: the plug-in's entries and the procedures behind them.
 *
 * A host loads the library, calls rdm_init once and then, for each request under /rdm/, rdm_type, rdm_service and
 * rdm_log. One request at a time is inside rdm_service_crit, so nothing below rdm_service locks anything; only rdm_log
 * runs beside it, under a section of its own.
 *
 * Whatever a client sends is answered with HTTP status 200 and an RDM message; what went wrong stands in the message's
 * "rdm-error-message". Request statuses are HOST_DONE, HOST_ABORT and HOST_NOT_HANDLED.
 */
#ifndef SERVICE_RDM_H
#define SERVICE_RDM_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

/* ---- Entries of the plug-in ---- */

/// rdm_service_crit holds one request at a time, rdm_log_crit one transaction-log line at a time. The first
/// rdm_init_real makes them; later ones use them again.
extern host_crit *rdm_log_crit, *rdm_service_crit;

/// logfile is the path of the transaction log, empty when there is none; logfd its descriptor, or -1.
extern char logfile[1024];
extern host_fd logfd;

/// cs_csidcf is the path of the CSID configuration file, owned.
extern char *cs_csidcf;

/// rdm_init reads the service configuration file that `pb` names as "config" and sets the service up from it.
/// 0, or -1 with the reason in `pb` ("error"), on standard error or in the host's error log.
int rdm_init(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_init_real sets the service up from a configuration block: diagnostic log, critical sections, environment of
/// child commands, transaction log, catalog services, schema. 0, or -1; what was set up before a failure stays.
int rdm_init_real(pblock *config, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_service answers one request, inside rdm_service_crit once that is there. Before rdm_init no catalog service is
/// known, so that every request is refused.
int rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// _real_rdm_service is rdm_service without the critical section.
int _real_rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_type gives a request under /rdm/ the content type of RDM messages; HOST_NOT_HANDLED for any other URI.
int rdm_type(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log appends the line that rdm_log_add left in the request to the transaction log, inside rdm_log_crit. Always 0.
int rdm_log(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;

/* ---- Intake, delivery, transaction log ---- */

/// rdm_stop refuses a request: it answers with a status-response that carries `message` (null: "RDM Server Error"),
/// reports the message to the host under `function` and returns `value`.
int rdm_stop(const char *message, const char *function, int value, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_validate_uri returns 1 when a message of `type` may be sent to `uri`, else 0.
int rdm_validate_uri(const char *uri, int32_t type) QX_NOEXCEPT;

/// rdm_send_http_header sends status 200 with the content type (unless one is set) and, when it is not 0, the content
/// length (unless one is set). The result of host_start_response.
int rdm_send_http_header(uint32_t content_length, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_send_result sends `result`, after the HTTP header when `send_header` is not 0, and destroys it. 0, or -1.
int rdm_send_result(int send_header, csio *result, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log_add leaves a transaction-log line in the request for rdm_log; null texts print as "-". 0, or -1.
int rdm_log_add(const char *message, const char *second, const char *third, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_log_terminate closes the transaction log, inside rdm_log_crit: no line is on its way to the descriptor then.
void rdm_log_terminate(void) QX_NOEXCEPT;

/* ---- RDM header ---- */

/// Message types. Updates share the codes of plain RD requests and responses.
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
  char *version; /* "1.0" after a reset; never printed */
  int32_t type;
  char *query_language;
  char *response_interpret; /* printed, never parsed */
  char *csid;
  char *error_message;
  int32_t error_code; /* printed when above 0 */
} rdmhdr;

/// rdmhdr_create stores a new record with every field 0 (null when memory fails).
void rdmhdr_create(rdmhdr **out) QX_NOEXCEPT;

/// rdmhdr_reset releases and clears every field, then sets the version.
void rdmhdr_reset(rdmhdr *h) QX_NOEXCEPT;

/// rdmhdr_destroy releases the record; null is ignored.
void rdmhdr_destroy(rdmhdr *h) QX_NOEXCEPT;

/// rdmhdr_print appends the header and its blank line to `io`. Always 0.
int rdmhdr_print(const rdmhdr *h, csio *io) QX_NOEXCEPT;

/// rdmhdr_parse fills the record from the first object in the next 1023 bytes of `io`. 0; 1 when the header is missing
/// or malformed; 2 when its version is not 1.0. After a failure the record is as after a reset.
int rdmhdr_parse(csio *io, rdmhdr *h) QX_NOEXCEPT;

/* ---- Message handlers ---- */

/// rdm_handler answers a message. It may reset and reuse `header`. 0 when `output` holds the whole answer, 1 when the
/// handler has sent the answer itself.
typedef int32_t (*rdm_handler)(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq);

/// rdm_get_response runs the handler of the header's type. `*gzip` is set to 0, `*status` to the handler's result.
/// Always 0.
int rdm_get_response(rdmhdr *header, csio *input, Session *sn, Request *rq, csio *output, int32_t *gzip,
                     int32_t *status) QX_NOEXCEPT;

/// rdm_msg_handler_default answers that the message type is not supported.
int32_t rdm_msg_handler_default(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// status_ok answers a status-request. status_illegal answers that the interaction is illegal.
int32_t status_ok(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t status_illegal(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// sd_request, schema_request and tax_request answer with the file that the catalog service names as
/// "server-description", "schema-description" or "taxonomy-description".
int32_t sd_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t schema_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t tax_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_rd_request answers a gatherer's query with resource descriptions of the catalog.
int32_t rds_rd_request(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_rd_response imports the resource descriptions in `body` into the catalog. For programs: the service has no row
/// for it. A header of another type than rd-response or rd-delete-response ends the process.
int32_t rds_rd_response(rdmhdr *header, csio *body, csio *response, Session *sn, Request *rq) QX_NOEXCEPT;

/// rdm_encode_gzip, rdm_decode_gzip and run_rdmgr_request hold the places of compressed bodies and of a program that
/// makes the description files. They do nothing; the first two return 0.
int rdm_encode_gzip(void) QX_NOEXCEPT;
int rdm_decode_gzip(void) QX_NOEXCEPT;
void run_rdmgr_request(void) QX_NOEXCEPT;

/* ---- Catalog search ---- */

/// cs_dbentry is one entry of the index file, in host byte order. `time` is in seconds since 1970-01-01 UTC, `key` the
/// number of the resource description in the catalog database.
typedef struct cs_dbentry {
  uint32_t time, reserved1, key, reserved2, reserved3;
} cs_dbentry;

/// cs_dbindex is an index in memory, sorted by time. host_free releases its entries. Without entries it is empty,
/// whatever its count.
typedef struct cs_dbindex {
  cs_dbentry *entries;
  uint32_t count;
} cs_dbindex;

/// cs_dbsearch_start loads the index of a catalog service. 0, or 1; either way the caller releases the entries. When
/// the file is shorter than its count of entries, or cannot be read to their end, the result is 1 and `count` is as the
/// file says; `entries` then holds those that were read and zeros after them, or is null when the file lacks more than
/// 65,536 bytes or memory fails.
int cs_dbsearch_start(const char *csid, cs_dbindex *index) QX_NOEXCEPT;

/// cs_dbsearch returns the position of the first entry to send for a since query: -1 when none is that late or the
/// index is empty, the count when the search narrows to the last entry.
int32_t cs_dbsearch(const cs_dbindex *index, time_t since) QX_NOEXCEPT;

/// send_since sends an rd-response with the descriptions changed since a time (0: all). `*count` is the limit on entry
/// (0: none, negative: nothing is sent) and the number sent on return, `*bytes` the length of the answer. -1 when
/// memory fails before anything is sent, else the result of the last rdm_send_result.
int send_since(const char *csid, cs_dbindex *index, time_t since, char **attributes, int32_t *count, uint32_t *bytes,
               Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_send_rd prints the descriptions of a list of database keys into `output`, cut to the attributes of a
/// null-terminated list (null or empty: all of them). The number printed.
int32_t rds_send_rd(const char *csid, cslist *keys, char **attributes, csio *output) QX_NOEXCEPT;

/// cs_dbsearch_log leaves the transaction-log line of an RD request.
void cs_dbsearch_log(int32_t count, uint32_t bytes, time_t since, Session *sn, Request *rq) QX_NOEXCEPT;

/// rds_qmgr_do_error answers a query in a language that the service does not speak. Always 0.
int32_t rds_qmgr_do_error(rdmhdr *header, csio *input, csio *response) QX_NOEXCEPT;

/// rds_status_ok answers with a status-response that carries `text` and, when it is not null, `error_message`. Always
/// 0.
int32_t rds_status_ok(const char *text, const char *error_message, rdmhdr *header, csio *input, csio *response,
                      Session *sn, Request *rq) QX_NOEXCEPT;

QX_END

#endif
