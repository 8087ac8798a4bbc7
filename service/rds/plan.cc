// SPDX-License-Identifier: MIT
#include "service/rds/plan.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "qxapi/uninterrupted.h"

namespace rdm {

Plan::~Plan() {
  if (entries_ != nullptr) ::munmap(entries_, size_);
}

/// prepare seals the size of the file: the process would not survive an access to pages that are cut off.
bool Plan::prepare(uint32_t count) noexcept {
  size_ = (size_t{count / part} + 1) * part * sizeof(Entry);
  file_ = HostFileGuard(::memfd_create("rdm-plan", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  reserved_ = host_new<bool>(count / part + 1);
  const bool is_made = file_ && reserved_ && ::ftruncate(file_.get(), static_cast<off_t>(size_)) == 0 &&
                       ::fcntl(file_.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) == 0;
  void *const bytes = is_made ? ::mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0) : MAP_FAILED;
  if (bytes != MAP_FAILED) entries_ = static_cast<Entry *>(bytes);
  return entries_ != nullptr;
}

bool Plan::reserve(uint32_t first, uint32_t count) noexcept {
  if (count == 0) return true;
  bool *const end = reserved_.get() + (first + count - 1) / part + 1;
  for (bool *from = std::find(reserved_.get() + first / part, end, false); from != end;) {
    bool *const to = std::find(from, end, true);
    if (!reserve_parts(from, to)) return false;
    from = std::find(to, end, false);
  }
  return true;
}

/// reserve_parts takes the memory by fallocate(), which says if there is none; an access would be a SIGBUS.
bool Plan::reserve_parts(bool *from, bool *to) noexcept {
  constexpr off_t size = part * sizeof(Entry);
  const off_t start = (from - reserved_.get()) * size, length = (to - from) * size;
  const bool done = uninterrupted([&] { return ::fallocate(file_.get(), 0, start, length); }) == 0;
  std::fill(from, to, done);
  return done;
}

}  // namespace rdm
