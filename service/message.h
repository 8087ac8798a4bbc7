// SPDX-License-Identifier: MIT
/// Helpers for RDM messages, shared by the service's files.
#ifndef SERVICE_MESSAGE_H
#define SERVICE_MESSAGE_H

#include "libcs/guard.h"
#include "service/rdm.h"

namespace rdm {

using RdmHeaderPtr = std::unique_ptr<rdmhdr, Deleter<rdmhdr_destroy>>;

/// make_rdmhdr returns a new header of the given type, or null if allocation fails.
inline RdmHeaderPtr make_rdmhdr(int32_t type) noexcept {
  rdmhdr *record = nullptr;
  rdmhdr_create(&record);
  if (record != nullptr) {
    rdmhdr_reset(record);
    record->type = type;
  }
  return RdmHeaderPtr(record);
}

/// rdm_type_name returns the printed name of a message type, "Unknown" for any other number.
const char *rdm_type_name(int32_t type) noexcept;

/// rdm_answer turns the header of a request into the header of its answer, with a type and, unless it is null, an error
/// message.
void rdm_answer(rdmhdr *header, int32_t type, const char *error_message) noexcept;

/// append_text appends a text to a buffer.
inline void append_text(csio *io, std::string_view text) noexcept {
  csio_append(io, text.data(), static_cast<int32_t>(text.size()));
}

}  // namespace rdm

#endif
