// SPDX-License-Identifier: MIT
#include "service/rds/body.h"

#include "service/rdm.h"

namespace rdm {
namespace {

constexpr uint32_t memory_limit = 32768;

}  // namespace

Body::Body() noexcept : buffer_(make_csio(memory_limit)) {}

bool Body::add_slice(const host_slice &slice) noexcept {
  if (host_sends_slices() == 0 || count_ == part_limit) return false;
  if (!parts_) parts_ = host_new<Part>(part_limit);
  if (!parts_) return false;
  parts_.get()[count_++] = {buffer_->length, slice};
  sliced_ += static_cast<uint64_t>(slice.length);
  return true;
}

int Body::send(Session *sn, Request *rq) &&noexcept {
  csio_finish(buffer_.get());
  if (count_ == 0) return rdm_send_result(0, buffer_.release(), sn, rq);
  csio_rewind(buffer_.get());
  if (send_parts(sn)) return 0;
  host_report_error(0, "rdm-service", sn, rq, "%s", "RDM Error during transmission.\n");
  return -1;
}

bool Body::send_parts(const Session *sn) const noexcept {
  uint32_t done = 0;
  for (uint32_t i = 0; i < count_; ++i) {
    const Part &part = parts_.get()[i];
    if (!send_bytes(part.start - done, sn) || host_send_slice(sn->socket, &part.slice) == -1) return false;
    done = part.start;
  }
  return send_bytes(buffer_->length - done, sn);
}

/// send_bytes sends the next bytes of the buffer.
bool Body::send_bytes(uint32_t count, const Session *sn) const noexcept {
  char block[16384];
  while (count > 0) {
    const auto wanted = static_cast<int32_t>(std::min<uint32_t>(count, sizeof block));
    const int32_t got = csio_copy(buffer_.get(), block, wanted);
    if (got <= 0 || host_net_write(sn->socket, block, got) == -1) return false;
    count -= static_cast<uint32_t>(got);
  }
  return true;
}

}  // namespace rdm
