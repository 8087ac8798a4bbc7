// SPDX-License-Identifier: MIT
#include "service/rds/plan.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

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
  for (uint32_t number = first / part; number <= (first + count - 1) / part; ++number)
    if (!reserve_part(number)) return false;
  return true;
}

/// reserve_part takes the memory by fallocate(), which says if there is none; an access would be a SIGBUS.
bool Plan::reserve_part(uint32_t number) noexcept {
  constexpr off_t size = part * sizeof(Entry);
  bool &reserved = reserved_.get()[number];
  reserved = reserved || ::fallocate(file_.get(), 0, number * size, size) == 0;
  return reserved;
}

}  // namespace rdm
