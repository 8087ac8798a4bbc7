// SPDX-License-Identifier: MIT
#include "service/rds/answer.h"

#include <cstring>

#include <libcs/cs.h>

#include "service/message.h"

namespace rdm {
namespace {

constexpr uint32_t header_size = 256;  // bytes, usually at most

/// set_response_header sets a response header, and replaces one that has another value. Returns false if allocation
/// fails.
bool set_response_header(const char *name, const char *value, Request *rq) {
  const char *const present = host_param_find(name, rq->response);
  if (present != nullptr && std::strcmp(present, value) == 0) return true;
  if (present != nullptr) pblock_remove_n_free(name, rq->response);
  return host_param_add(name, value, rq->response) == 0;
}

/// announce_length sets content type and content length. Returns false if allocation fails: with another length, the
/// answer would be cut.
bool announce_length(uint64_t length, Request *rq) {
  char text[24];
  host_itoa(static_cast<int64_t>(length), text);
  return set_response_header("content-type", "application/x-rdm", rq) &&
         set_response_header("content-length", text, rq);
}

/// make_header returns the printed header of an rd-response with `count` descriptions, or null if allocation fails.
CsioPtr make_header(int32_t count) {
  CsioPtr printed = make_csio();
  const RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
  if (!printed || !header) return nullptr;
  printed->increment = header_size;
  if (count == 0) header->error_message = host_strdup("0 results.");
  rdmhdr_print(header.get(), printed.get());
  csio_finish(printed.get());
  return printed;
}

}  // namespace

int send_descriptions(Body descriptions, int32_t count, uint32_t *bytes, Session *sn, Request *rq) noexcept {
  CsioPtr header = make_header(count);
  if (!header) return -1;
  const uint64_t length = header->length + descriptions.length();
  if (!announce_length(length, rq)) return -1;
  *bytes = static_cast<uint32_t>(length);
  const int sent = rdm_send_result(1, header.release(), sn, rq);
  return descriptions.length() != 0 ? std::move(descriptions).send(sn, rq) : sent;
}

}  // namespace rdm
