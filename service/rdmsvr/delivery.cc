// SPDX-License-Identifier: MIT
#include <libcs/log.h>

#include "libcs/guard.h"
#include "service/message.h"

using namespace rdm;

namespace {

constexpr int send_buffer_size = 4096;

bool is_file(const csio *result) {
  return (result->flags & CSIO_FILE) != 0 && result->filename != nullptr && result->length != 0;
}

bool is_memory(const csio *result) {
  return (result->flags & CSIO_MEMORY) != 0 && result->data != nullptr && result->length != 0;
}

int send_file(const csio *result, Session *sn, Request *rq) {
  const HostFileGuard file(host_open_read(result->filename));
  const ReaderPtr reader(file ? host_buffer_open(file.get(), send_buffer_size) : nullptr);
  if (!reader) {
    host_report_error(0, rdm_report_name, sn, rq, "%s", "RDM Result is not readable?\n");
    return -1;
  }
  if (host_buffer_send(reader.get(), sn->socket) != -1) return 0;
  host_report_error(0, rdm_report_name, sn, rq, "%s", "RDM Error during transmission.\n");
  return -1;
}

int send_memory(const csio *result, Session *sn) {
  if (host_net_write(sn->socket, result->data, static_cast<int32_t>(result->length)) != -1) return 0;
  // Log a lost client at level 0, too, unlike every other diagnostic.
  if (_cslog_level >= 0) {
    _cslog_set_params(CSLOG_ERROR, "rdmsvr", __LINE__);
    _cslog_do_print("Network write failure: %s\n", host_last_error_text());
  }
  return -1;
}

void report_bad_result(const csio *result) {
  CSLOG(CSLOG_ERROR, "rdmsvr", "RDM Engine generated a bad result?\n");
  if (result == nullptr) {
    CSLOG(CSLOG_ERROR, "rdmsvr", "\tInvalid 'result'?\n");
    return;
  }
  if (result->length == 0) CSLOG(CSLOG_ERROR, "rdmsvr", "\tZero length result.\n");
  if ((result->flags & CSIO_FILE) != 0 && result->filename == nullptr)
    CSLOG(CSLOG_ERROR, "rdmsvr", "\tFile-based with no filename?\n");
  if ((result->flags & CSIO_MEMORY) != 0 && result->data == nullptr)
    CSLOG(CSLOG_ERROR, "rdmsvr", "\tMemeory-based with no memory?\n");
}

}  // namespace

int rdm_send_http_header(uint32_t content_length, Session *sn, Request *rq) noexcept {
  if (host_param_find("content-type", rq->response) == nullptr)
    host_param_add("content-type", "application/x-rdm", rq->response);
  if (content_length != 0 && host_param_find("content-length", rq->response) == nullptr) {
    char length[24];
    host_itoa(content_length, length);
    host_param_add("content-length", length, rq->response);
  }
  host_set_status(sn, rq, 200, nullptr);
  return host_start_response(sn, rq);
}

int rdm_send_result(int send_header, csio *result, Session *sn, Request *rq) noexcept {
  const CsioPtr owned(result);
  if (result != nullptr) {
    if (send_header != 0) rdm_send_http_header(result->length, sn, rq);
    csio_rewind(result);
    if (is_file(result)) return send_file(result, sn, rq);
    if (is_memory(result)) return send_memory(result, sn);
  }
  report_bad_result(result);
  return -1;
}
