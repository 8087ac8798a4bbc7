// SPDX-License-Identifier: MIT
/// The answer to an rd-request: a header and the descriptions.
#ifndef SERVICE_RDS_ANSWER_H
#define SERVICE_RDS_ANSWER_H

#include "service/rdm.h"
#include "service/rds/body.h"

namespace rdm {

/// send_descriptions sends an rd-response with the `count` descriptions of a body. `*bytes` is the length of the
/// answer. Returns -1 if allocation fails before anything is sent (`*bytes` is unchanged), otherwise the result of what
/// was sent last.
int send_descriptions(Body descriptions, int32_t count, uint32_t *bytes, Session *sn, Request *rq) noexcept;

}  // namespace rdm

#endif
