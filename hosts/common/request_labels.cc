// SPDX-License-Identifier: MIT
#include "hosts/common/request_labels.h"

#include "qxapi/number.h"

namespace rdm::hosts {

RequestLabels read_labels(const Exchange &exchange) {
  return {exchange.variable("rdm-type"), exchange.variable("rdm-csid"),
          parse_number<std::int64_t>(exchange.variable("rdm-hits"))};
}

}  // namespace rdm::hosts
