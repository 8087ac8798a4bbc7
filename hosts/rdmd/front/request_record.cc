// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_record.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "hosts/rdmd/front/request_id.h"
#include "hosts/rdmd/log.h"

namespace rdm::rdmd {
namespace {

/// Bytes of an unfinished line that the access log shows.
constexpr std::size_t logged_line = 256;

}  // namespace

void RequestRecord::begin(std::string line) {
  renew_request_id(id_);
  entry_ = AccessEntry{};
  entry_.client = client_;
  entry_.time = std::chrono::system_clock::now();
  entry_.line = std::move(line);
  entry_.status = 503;
  entry_.connection = connection_;
  is_open_ = true;
}

bool RequestRecord::begin_unread(std::string_view input) {
  if (is_open_) return false;
  begin(std::string(input.substr(0, std::min(input.find_first_of("\r\n"), logged_line))));
  return true;
}

std::string RequestRecord::who() const { return describe_client(client_, id_); }

void RequestRecord::finish(const std::optional<Delivery::Progress> &progress, bool keeps, Metrics &metrics,
                           AccessLog &log) {
  if (!std::exchange(is_open_, false)) return;
  entry_.bytes = progress ? progress->body_bytes : 0;
  if (progress) entry_.sent = progress->time;
  if (!keeps || !entry_.complete) entry_.closed_by = closer_;
  entry_.id.swap(id_);
  metrics.count(entry_);
  log.write(entry_);
  entry_.id.swap(id_);
  // Assigning an empty entry would keep the capacity of its strings.
  const AccessEntry former = std::exchange(entry_, AccessEntry{});
}

}  // namespace rdm::rdmd
