// SPDX-License-Identifier: MIT
/// Bounds the bytes of answers that wait for their clients in temporary files: in all, and for each client.
#ifndef HOSTS_RDMD_FRONT_SPILL_BUDGET_H
#define HOSTS_RDMD_FRONT_SPILL_BUDGET_H

#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <vector>

#include "hosts/common/output_queue.h"
#include "hosts/rdmd/front/client_key.h"

namespace rdm::rdmd {

/// SpillBudget is used by any thread and outlives its shares.
class SpillBudget {
 public:
  /// The limits are in bytes; 0: no limit.
  SpillBudget(std::int64_t limit, std::int64_t client_limit) : limit_(limit), client_limit_(client_limit) {}

  /// Share is the part that one answer takes; its destructor gives it back. A share without a budget has no limit.
  class Share {
   public:
    Share() = default;
    Share(Share &&other) noexcept;
    Share &operator=(Share &&other) noexcept;
    ~Share();

    /// grow takes `bytes` more. Returns false, and takes nothing, if that would exceed a limit.
    bool grow(std::int64_t bytes);

   private:
    friend class SpillBudget;
    Share(SpillBudget &budget, const std::optional<ClientKey> &client) : budget_(&budget), client_(client) {}

    SpillBudget *budget_ = nullptr;
    std::optional<ClientKey> client_;
    std::int64_t bytes_ = 0;
  };

  /// open returns an empty share of an answer to this client. Without a key only the limit in all holds.
  Share open(const std::optional<ClientKey> &client) { return {*this, client}; }

  /// used returns the number of bytes taken, clients how many clients have taken some.
  std::int64_t used() const;
  std::size_t clients() const;

 private:
  bool take(const std::optional<ClientKey> &client, std::int64_t bytes);
  void give_back(const std::optional<ClientKey> &client, std::int64_t bytes);

  const std::int64_t limit_, client_limit_;
  mutable std::mutex mutex_;
  std::int64_t used_ = 0;
  std::unordered_map<ClientKey, std::int64_t> used_by_;  // without clients that have taken nothing
};

/// temporary_bytes returns how many bytes of an answer are in files without a name, which take room on the disk until
/// they have been sent. Files with a name take no more room for being sent.
std::int64_t temporary_bytes(const std::vector<hosts::Piece> &pieces);

}  // namespace rdm::rdmd

#endif
