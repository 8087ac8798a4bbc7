// SPDX-License-Identifier: MIT
/// One call of the service as plain data, so that the caller and the plug-in may be in different processes.
#ifndef HOSTS_COMMON_SERVICE_CALL_H
#define HOSTS_COMMON_SERVICE_CALL_H

#include <cstddef>
#include <string>
#include <vector>

#include "hosts/common/exchange.h"
#include "hosts/common/plugin.h"
#include "hosts/common/request_labels.h"

namespace rdm::hosts {

/// ServiceRequest is everything that the plug-in sees of a request: the entries of its blocks in order, and the body.
struct ServiceRequest {
  std::vector<Field> client;     // "ip"
  std::vector<Field> line;       // "method", "uri" and, if the target has one, "query"
  std::vector<Field> headers;    // names in lower case
  std::vector<Field> variables;  // request_id_variable
  std::string body;
  bool head_only = false;  // the answer has no body (HEAD)
};

/// ServiceAnswer is everything that the host needs for its answer.
struct ServiceAnswer {
  Outcome outcome = Outcome::silent;
  int failure = 0;  // an errno: the reason if the outcome is `broken` and the reason is known
  RequestLabels labels;
  bool delimited = false;     // the client can detect the end of the answer; see Exchange::delimited
  Head head;                  // the members from here on are set only if the outcome is `answered`
  std::vector<Piece> pieces;  // of the body
};

/// fill fills a new exchange with a request, whose body it takes. Throws std::bad_alloc.
void fill(Exchange &exchange, ServiceRequest &&request);

/// call_service serves a request, whose body it takes, and returns the answer. The rest of the request stays the
/// caller's. Throws std::bad_alloc.
ServiceAnswer call_service(Plugin &plugin, ServiceRequest &&request);

}  // namespace rdm::hosts

#endif
