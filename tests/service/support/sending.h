// SPDX-License-Identifier: MIT
/// A host that sends slices, and how the service sends to it.
#ifndef TESTS_SERVICE_SUPPORT_SENDING_H
#define TESTS_SERVICE_SUPPORT_SENDING_H

#include <cstdint>

#include <qxapi/slice.h>

#include "service/rds/planned_descriptions.h"
#include "service/rds/view.h"
#include "support/memory_host.h"
#include "support/slices.h"

namespace rdm::support {

/// send_slice is the procedure of a host that appends the bytes of a slice to what it has sent.
inline int64_t send_slice(host_net *, const host_slice *slice) {
  host_record().sent += bytes_of(*slice);
  return slice->length;
}

/// SendingLimits restores, at its end, how short slices and how long views may be.
class SendingLimits {
 public:
  SendingLimits() = default;
  SendingLimits(uint64_t slice, int64_t share) {
    least_slice = slice;
    view_share = share;
  }
  SendingLimits(const SendingLimits &) = delete;
  SendingLimits &operator=(const SendingLimits &) = delete;
  ~SendingLimits() {
    least_slice = slice_;
    view_share = share_;
  }

 private:
  const uint64_t slice_ = least_slice;
  const int64_t share_ = view_share;
};

}  // namespace rdm::support

#endif
