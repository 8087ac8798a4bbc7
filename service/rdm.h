/*
 * The RDM service.
 */
#ifndef SERVICE_RDM_H
#define SERVICE_RDM_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

extern host_crit *rdm_log_crit, *rdm_service_crit;
extern char logfile[1024];
extern host_fd logfd;
extern char *cs_csidcf;
int rdm_init(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_init_real(pblock *config, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;
int _real_rdm_service(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_type(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_log(pblock *pb, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_stop(const char *message, const char *function, int value, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_validate_uri(const char *uri, int32_t type) QX_NOEXCEPT;
int rdm_send_http_header(uint32_t content_length, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_send_result(int send_header, csio *result, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_log_add(const char *message, const char *second, const char *third, Session *sn, Request *rq) QX_NOEXCEPT;
void rdm_log_terminate(void) QX_NOEXCEPT;
typedef struct rdmhdr {
  char *version;
  int32_t type;
  char *query_language;
  char *response_interpret;
  char *csid;
  char *error_message;
  int32_t error_code;
} rdmhdr;
void rdmhdr_create(rdmhdr **out) QX_NOEXCEPT;
void rdmhdr_reset(rdmhdr *h) QX_NOEXCEPT;
void rdmhdr_destroy(rdmhdr *h) QX_NOEXCEPT;
int rdmhdr_print(const rdmhdr *h, csio *io) QX_NOEXCEPT;
int rdmhdr_parse(csio *io, rdmhdr *h) QX_NOEXCEPT;
typedef int32_t (*rdm_handler)(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq);
int rdm_get_response(rdmhdr *header, csio *input, Session *sn, Request *rq, csio *output, int32_t *gzip,
                     int32_t *status) QX_NOEXCEPT;
int32_t rdm_msg_handler_default(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t status_ok(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t status_illegal(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t sd_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t schema_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t tax_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t rds_rd_request(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t rds_rd_response(rdmhdr *header, csio *input, csio *output, Session *sn, Request *rq) QX_NOEXCEPT;
int rdm_encode_gzip(void) QX_NOEXCEPT;
int rdm_decode_gzip(void) QX_NOEXCEPT;
void run_rdmgr_request(void) QX_NOEXCEPT;
typedef struct cs_dbentry {
  uint32_t time, reserved1, key, reserved2, reserved3;
} cs_dbentry;
typedef struct cs_dbindex {
  cs_dbentry *entries;
  uint32_t count;
} cs_dbindex;
int cs_dbsearch_start(const char *csid, cs_dbindex *index) QX_NOEXCEPT;
int32_t cs_dbsearch(const cs_dbindex *index, time_t since) QX_NOEXCEPT;
int send_since(const char *csid, cs_dbindex *index, time_t since, char **attributes, int32_t *count, uint32_t *bytes,
               Session *sn, Request *rq) QX_NOEXCEPT;
int32_t rds_send_rd(const char *csid, cslist *keys, char **attributes, csio *output) QX_NOEXCEPT;
void cs_dbsearch_log(int32_t count, uint32_t bytes, time_t since, Session *sn, Request *rq) QX_NOEXCEPT;
int32_t rds_qmgr_do_error(rdmhdr *header, csio *input, csio *response) QX_NOEXCEPT;
int32_t rds_status_ok(const char *text, const char *error_message, rdmhdr *header, csio *input, csio *response,
                      Session *sn, Request *rq) QX_NOEXCEPT;

QX_END

#endif
