// SPDX-License-Identifier: MIT
#include "qxapi/posix.h"

using namespace rdm;

const qxapi_host *qxapi_posix_host(void) noexcept { return &posix_host::table; }
