// SPDX-License-Identifier: MIT
/// What the service's files share about RDM messages.
#ifndef SERVICE_MESSAGE_H
#define SERVICE_MESSAGE_H

#include "libcs/guard.h"
#include "service/rdm.h"

namespace rdm {

using RdmHeaderPtr = std::unique_ptr<rdmhdr, Deleter<rdmhdr_destroy>>;

/// make_rdmhdr returns a new record, reset and of the given type, or null when memory fails.
inline RdmHeaderPtr make_rdmhdr(int32_t type) noexcept {
  rdmhdr *record = nullptr;
  rdmhdr_create(&record);
  if (record != nullptr) {
    rdmhdr_reset(record);
    record->type = type;
  }
  return RdmHeaderPtr(record);
}

/// rdm_type_name returns the name that a message type is printed with, "Unknown" for any other number.
const char *rdm_type_name(int32_t type) noexcept;

/// rdm_answer turns the header of a request into that of its answer: a type and, when it is not null, an error message.
void rdm_answer(rdmhdr *header, int32_t type, const char *error_message) noexcept;

/// append_text appends a text to a buffer.
inline void append_text(csio *io, std::string_view text) noexcept {
  csio_append(io, text.data(), static_cast<int32_t>(text.size()));
}

}  // namespace rdm

#endif
