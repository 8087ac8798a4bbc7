// SPDX-License-Identifier: MIT
#include "hosts/common/service_call.h"

#include <utility>

#include "hosts/common/host_table.h"

namespace rdm::hosts {

void fill(Exchange &exchange, ServiceRequest &&request) {
  for (const Field &entry : request.client) exchange.client(entry.name, entry.value);
  for (const Field &entry : request.line) exchange.line(entry.name, entry.value);
  for (const Field &entry : request.headers) exchange.header(entry.name, entry.value);
  for (const Field &entry : request.variables) exchange.variable(entry.name, entry.value);
  if (!request.body.empty()) exchange.input(std::move(request.body));
  if (request.head_only) exchange.head_only();
}

ServiceAnswer call_service(Plugin &plugin, ServiceRequest &&request) {
  Exchange exchange;
  fill(exchange, std::move(request));
  ServiceAnswer answer;
  answer.outcome = serve(plugin, exchange);
  if (answer.outcome == Outcome::broken) answer.failure = last_resource_failure();
  answer.labels = read_labels(exchange);
  if (answer.outcome != Outcome::answered) return answer;
  answer.delimited = exchange.delimited();
  answer.head = exchange.take_head();
  answer.pieces = exchange.queue().take();
  return answer;
}

}  // namespace rdm::hosts
