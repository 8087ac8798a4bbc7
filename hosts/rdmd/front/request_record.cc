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
/// Bytes of a header field that the access log shows.
constexpr std::size_t logged_field = 1024;

/// join returns the texts one after another, in no larger a block than they need.
std::string join(std::string line, std::string_view referer, std::string_view agent) {
  if (referer.empty() && agent.empty()) return line;
  std::string text;
  text.reserve(line.size() + referer.size() + agent.size());
  return text.append(line).append(referer).append(agent);
}

}  // namespace

void RequestRecord::begin(std::string line, std::string_view referer, std::string_view agent) {
  const std::size_t line_size = line.size();
  referer = referer.substr(0, logged_field);
  agent = agent.substr(0, logged_field);
  text_ = join(std::move(line), referer, agent);
  const std::string_view text = text_;
  renew_request_id(id_);
  entry_ = AccessEntry{};
  entry_.time = std::chrono::system_clock::now();
  entry_.line = text.substr(0, line_size);
  entry_.referer = text.substr(line_size, referer.size());
  entry_.agent = text.substr(line_size + referer.size());
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
  entry_.client = client_;
  entry_.id = id_;
  metrics.count(entry_);
  log.write(entry_);
  // Assigning empty ones would keep the capacity of their strings.
  const AccessEntry former = std::exchange(entry_, AccessEntry{});
  const std::string text = std::exchange(text_, std::string());
}

}  // namespace rdm::rdmd
