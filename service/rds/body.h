// SPDX-License-Identifier: MIT
/// The body of an answer with descriptions.
#ifndef SERVICE_RDS_BODY_H
#define SERVICE_RDS_BODY_H

#include <qxapi/slice.h>

#include "libcs/guard.h"

namespace rdm {

/// Body is descriptions in a buffer, and between its bytes slices of the database, which the host sends from there.
class Body {
 public:
  /// Makes an empty body; its buffer is null if allocation fails.
  Body() noexcept;

  /// buffer takes the bytes that follow what the body has already.
  csio *buffer() const noexcept { return buffer_.get(); }

  /// length returns the number of bytes, including those of slices.
  uint64_t length() const noexcept { return buffer_->length + sliced_; }
  uint64_t sliced() const noexcept { return sliced_; }

  /// add_slice appends a slice, whose files must stay open until the body is sent. Returns false if the host sends no
  /// slices, if the body has as many as it may have, or if allocation fails.
  bool add_slice(const host_slice &slice) noexcept;

  /// send sends the body, which is not empty, after the head of the answer. Returns 0; or -1, with a report or a
  /// diagnostic, if that fails.
  int send(Session *sn, Request *rq) &&noexcept;

 private:
  struct Part {
    uint32_t start;  // the bytes of the buffer before the slice
    host_slice slice;
  };
  /// An answer that waits for its client costs memory for each part of it.
  static constexpr uint32_t part_limit = 512;

  bool send_parts(const Session *sn) const noexcept;
  bool send_bytes(uint32_t count, const Session *sn) const noexcept;

  CsioPtr buffer_;
  HostPtr<Part> parts_;
  uint32_t count_ = 0;
  uint64_t sliced_ = 0;
};

}  // namespace rdm

#endif
