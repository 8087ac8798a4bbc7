// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/spill_budget.h"

#include <sys/stat.h>

#include <numeric>
#include <utility>

namespace rdm::rdmd {
namespace {

/// exceeds returns true if `bytes` more than `used` are beyond a limit, of which 0 is none.
bool exceeds(std::int64_t used, std::int64_t bytes, std::int64_t limit) { return limit > 0 && bytes > limit - used; }

bool is_nameless(host_fd file) {
  struct stat status;
  return ::fstat(file, &status) == 0 && status.st_nlink == 0;
}

}  // namespace

SpillBudget::Share::Share(Share &&other) noexcept
    : budget_(std::exchange(other.budget_, nullptr)), client_(other.client_), bytes_(std::exchange(other.bytes_, 0)) {}

SpillBudget::Share &SpillBudget::Share::operator=(Share &&other) noexcept {
  std::swap(budget_, other.budget_);
  std::swap(client_, other.client_);
  std::swap(bytes_, other.bytes_);
  return *this;
}

SpillBudget::Share::~Share() {
  if (bytes_ > 0) budget_->give_back(client_, bytes_);
}

bool SpillBudget::Share::grow(std::int64_t bytes) {
  if (budget_ == nullptr || bytes <= 0) return true;
  if (!budget_->take(client_, bytes)) return false;
  bytes_ += bytes;
  return true;
}

bool SpillBudget::take(const std::optional<ClientKey> &client, std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  if (exceeds(used_, bytes, limit_)) return false;
  if (client) {
    const auto found = used_by_.find(*client);
    if (exceeds(found == used_by_.end() ? 0 : found->second, bytes, client_limit_)) return false;
    used_by_[*client] += bytes;
  }
  used_ += bytes;
  return true;
}

void SpillBudget::give_back(const std::optional<ClientKey> &client, std::int64_t bytes) {
  const std::lock_guard lock(mutex_);
  used_ -= bytes;
  if (!client) return;
  const auto found = used_by_.find(*client);
  if ((found->second -= bytes) == 0) used_by_.erase(found);
}

std::int64_t SpillBudget::used() const {
  const std::lock_guard lock(mutex_);
  return used_;
}

std::size_t SpillBudget::clients() const {
  const std::lock_guard lock(mutex_);
  return used_by_.size();
}

std::int64_t temporary_bytes(const std::vector<hosts::Piece> &pieces) {
  return std::accumulate(pieces.begin(), pieces.end(), std::int64_t{0},
                         [](std::int64_t sum, const hosts::Piece &piece) {
                           return sum + (piece.file && is_nameless(piece.file->get()) ? piece.length : 0);
                         });
}

}  // namespace rdm::rdmd
