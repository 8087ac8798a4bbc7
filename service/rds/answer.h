// SPDX-License-Identifier: MIT
/// The answer to an rd-request: a header, and the descriptions in a buffer.
#ifndef SERVICE_RDS_ANSWER_H
#define SERVICE_RDS_ANSWER_H

#include "libcs/guard.h"
#include "service/rdm.h"

namespace rdm {

/// make_descriptions_buffer returns an empty buffer for descriptions, or null if allocation fails.
CsioPtr make_descriptions_buffer() noexcept;

/// send_descriptions sends an rd-response with the `count` descriptions in a buffer. `*bytes` is the length of the
/// answer. Returns -1 if allocation fails before anything is sent (`*bytes` is unchanged), otherwise the result of the
/// last rdm_send_result.
int send_descriptions(CsioPtr descriptions, int32_t count, uint32_t *bytes, Session *sn, Request *rq) noexcept;

}  // namespace rdm

#endif
