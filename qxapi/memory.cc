// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>

#include "qxapi/posix.h"

namespace rdm::posix_host {

void *allocate(size_t n) { return std::malloc(n != 0 ? n : 1); }
void *reallocate(void *p, size_t n) { return std::realloc(p, n != 0 ? n : 1); }
void release(void *p) { std::free(p); }
char *duplicate(const char *s) { return ::strdup(s); }

}  // namespace rdm::posix_host
