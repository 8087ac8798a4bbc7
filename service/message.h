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

/// rdm_report_name names the service in reports to the host.
inline constexpr char rdm_report_name[] = "rdm-service";

/// rdm_type_name returns the printed name of a message type, "Unknown" for any other number.
const char *rdm_type_name(int32_t type) noexcept;

/// rdm_answer turns the header of a request into the header of its answer, with a type and, unless it is null, an error
/// message.
void rdm_answer(rdmhdr *header, int32_t type, const char *error_message) noexcept;

/// append_text appends a text to a buffer.
inline void append_text(csio *io, std::string_view text) noexcept {
  csio_append(io, text.data(), static_cast<int32_t>(text.size()));
}

/// The variables of a request in which the service leaves what it has found out, for the host's logs and counts: the
/// printed name of the message type, once it fits the URI; the catalog service as it is configured; and the number of
/// descriptions in the answer to an rd-request. None has text of a client.
inline constexpr char rdm_type_variable[] = "rdm-type";
inline constexpr char rdm_csid_variable[] = "rdm-csid";
inline constexpr char rdm_hits_variable[] = "rdm-hits";

/// rdm_set_variable adds a variable to a request that has a block for them. A failed allocation leaves the variable
/// out.
inline void rdm_set_variable(const char *name, const char *value, Request *rq) noexcept {
  if (rq->vars != nullptr) host_param_add(name, value, rq->vars);
}

}  // namespace rdm

#endif
