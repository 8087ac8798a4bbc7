// SPDX-License-Identifier: MIT
#include <cerrno>

#include <qxapi/slice.h>

namespace {

constinit host_slice_sender bound_sender = nullptr;

}  // namespace

int host_sends_slices(void) noexcept { return bound_sender != nullptr ? 1 : 0; }

int64_t host_send_slice(host_net *socket, const host_slice *slice) noexcept {
  if (bound_sender != nullptr) return bound_sender(socket, slice);
  errno = ENOSYS;
  return -1;
}

void qxapi_bind_slices(host_slice_sender sender) noexcept { bound_sender = sender; }
