// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/memory_trim.h"

#include <malloc.h>

#include <exception>

#include <boost/asio/post.hpp>

#include "hosts/rdmd/settings.h"

namespace rdm::rdmd {
namespace {

constexpr Duration trim_delay{1000};

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
  timer_.async_wait([this](const boost::system::error_code &error) {
    if (!error) trim();
  });
}

/// trim also returns free pages between pages in use: after a burst of large requests, small blocks of the remaining
/// connections are scattered over the heap.
void MemoryTrim::trim() {
  scheduled_ = false;
  ::malloc_trim(0);
}

void MemoryTrim::stop() {
  stopped_ = true;
  timer_.cancel();
}

}  // namespace rdm::rdmd
