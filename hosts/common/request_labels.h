// SPDX-License-Identifier: MIT
/// What the plug-in found out about a request, for the access log and the metrics.
#ifndef HOSTS_COMMON_REQUEST_LABELS_H
#define HOSTS_COMMON_REQUEST_LABELS_H

#include <cstdint>
#include <optional>
#include <string>

#include "hosts/common/exchange.h"

namespace rdm::hosts {

/// RequestLabels has no text of a client: the plug-in leaves only its own names. All are empty for a request that the
/// plug-in has not answered, or not understood.
struct RequestLabels {
  std::string type;                  // RDM type, such as "status-request"
  std::string catalog;               // CSID as configured
  std::optional<std::int64_t> hits;  // descriptions in the answer to an rd-request
};

/// read_labels returns the labels that the plug-in has left in the variables of a request.
RequestLabels read_labels(const Exchange &exchange);

}  // namespace rdm::hosts

#endif
