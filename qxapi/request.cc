// SPDX-License-Identifier: MIT
#include <cerrno>

#include "qxapi/ascii.h"
#include "qxapi/posix.h"

namespace rdm::posix_host {

int request_header(const char *name, char **value, Session *, Request *rq) {
  char lower[256];
  size_t length = 0;
  for (; name[length] != '\0' && length + 1 < sizeof lower; ++length) lower[length] = ascii::lower(name[length]);
  lower[length] = '\0';
  *value = name[length] == '\0' ? host_param_find(lower, rq->headers) : nullptr;
  return 0;
}

int input_next(host_input *in, int /*n*/) { return in->position < in->size ? in->data[in->position++] : 0; }

void set_status(Session *, Request *rq, int status, const char * /*reason*/) { rq->status = status; }

int start_response(Session *, Request *) { return HOST_DONE; }

int net_write(host_net *, const void *, int32_t) {
  errno = ENOTCONN;
  return -1;
}

}  // namespace rdm::posix_host
