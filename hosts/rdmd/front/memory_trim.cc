// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/memory_trim.h"

#ifdef RDM_JEMALLOC
#include <jemalloc/jemalloc.h>
#else
#include <malloc.h>
#endif

#include <exception>
#include <new>

#include <boost/asio/post.hpp>

#include "hosts/rdmd/settings.h"

#ifdef RDM_JEMALLOC
/// Settings of the allocator. Larger blocks, which seldom requests need, are not kept for the next one of a thread.
const char *malloc_conf = "tcache_max:4096";
#endif

namespace rdm::rdmd {
namespace {

constexpr Duration trim_delay{1000};

/// return_free_pages also returns free pages between pages in use: after a burst of large requests, small blocks of the
/// remaining connections are scattered over the heap.
void return_free_pages() {
#ifdef RDM_JEMALLOC
  // 4096 stands for all arenas (MALLCTL_ARENAS_ALL).
  ::mallctl("arena.4096.purge", nullptr, nullptr, nullptr, 0);
#else
  ::malloc_trim(0);
#endif
}

}  // namespace

void MemoryTrim::released() {
  if (stopped_ || scheduled_.exchange(true)) return;
  try {
    boost::asio::post(strand_, [this] { trim_soon(); });
  } catch (const std::exception &) {
    // The next request tries again.
    scheduled_ = false;
  }
}

void MemoryTrim::trim_soon() {
  if (stopped_) return;
  timer_.expires_after(trim_delay);
  try {
    timer_.async_wait([this](const boost::system::error_code &error) {
      if (!error) trim();
    });
  } catch (const std::bad_alloc &) {
    // The next request tries again.
    scheduled_ = false;
    throw;
  }
}

void MemoryTrim::trim() {
  scheduled_ = false;
  return_free_pages();
}

void MemoryTrim::stop() {
  stopped_ = true;
  timer_.cancel();
}

}  // namespace rdm::rdmd
