// SPDX-License-Identifier: MIT
#include "hosts/rdmd/log.h"

#include <cerrno>
#include <cstdio>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include <spdlog/details/log_msg.h>
#include <spdlog/pattern_formatter.h>

#include "hosts/rdmd/standard_stream.h"
#include "qxapi/log_text.h"

namespace rdm::rdmd {
namespace {

constexpr std::chrono::minutes minute{1};
/// The longest line of the error log, newline included.
constexpr std::size_t error_line_limit = log_line_size - 1;

struct TroubleText {
  std::string_view name, reason;
};

constexpr std::array<TroubleText, trouble_kinds> troubles_by_kind = {{
    {"late_tls", "closed: the TLS handshake was not complete within the header timeout"},
    {"bad_tls", "closed: the TLS handshake failed, as with a client that has no version or cipher of ours"},
    {"late_head", "408: the request head did not arrive in time"},
    {"late_body", "408: the request body did not arrive in time"},
    {"large_head", "414 or 431: the request head exceeds a limit"},
    {"unread", "answer cut off: the client acknowledged nothing within the write timeout"},
    {"too_slow", "answer cut off: the client took less than the minimum send rate"},
    {"broken", "answer cut off: the connection broke, or a file became shorter while it was sent"},
    {"not_served", "503: the connection was closed before the request was processed"},
    {"queue_full", "503: the queue of requests is full"},
    {"overdue", "503: the request waited longer than the queue time"},
    {"turned_away", "503: connection limit reached"},
    {"address_full", "503: connection limit of the address reached"},
    {"address_rate", "503: too many new connections of the address"},
    {"disconnected", "closed without an answer: too many clients beyond a limit on connections"},
    {"spill_full", "503: too many bytes of answers wait in temporary files"},
    {"not_a_proxy", "closed without an answer: not from a trusted proxy"},
    {"proxy_header", "closed without an answer: the PROXY header is malformed or did not arrive in time"},
    {"made_way", "waiting connection ended in favour of a new client"},
}};

}  // namespace

std::string_view trouble_name(Trouble kind) { return troubles_by_kind[static_cast<std::size_t>(kind)].name; }

std::string describe_client(std::string_view address, std::string_view request_id) {
  return std::string(address) + (request_id.empty() ? "" : ", request " + std::string(request_id));
}

std::optional<std::size_t> LineBudget::take(Clock::time_point now) {
  if (minute_ == Clock::time_point() || now - minute_ >= minute) {
    minute_ = now;
    passed_ = 0;
  }
  if (passed_ == lines_per_minute) {
    ++suppressed_;
    return std::nullopt;
  }
  ++passed_;
  return std::exchange(suppressed_, 0);
}

ErrorLog::ErrorLog(const std::string &path)
    : formatter_(std::make_unique<spdlog::pattern_formatter>(
          "[%Y-%m-%d %H:%M:%S.%e] [%l] rdmd: ", spdlog::pattern_time_type::local, "")) {
  if (path.empty()) return;
  file_ = std::make_unique<hosts::LogFile>(
      path, [this](std::size_t lines) { return dropped("the error log", lines); }, hosts::LogFile::NoticeTo::itself);
}

ErrorLog::~ErrorLog() {
  for (std::size_t kind = 0; kind < budgets_.size(); ++kind)
    if (const std::size_t lines = budgets_[kind].suppressed(); lines > 0)
      warn(std::to_string(lines) + " lines suppressed: " + std::string(troubles_by_kind[kind].reason));
  // Close it here: its notice uses members that are destroyed before file_.
  if (file_) file_->close();
}

void ErrorLog::info(std::string_view text) { write(spdlog::level::info, text); }
void ErrorLog::warn(std::string_view text) { write(spdlog::level::warn, text); }
void ErrorLog::error(std::string_view text) { write(spdlog::level::err, text); }

void ErrorLog::failure(std::string_view what, const std::exception &error, Severity severity) {
  const int level = severity == Severity::error ? spdlog::level::err : spdlog::level::warn;
  try {
    write(level, std::string(what) + ": " + error.what());
  } catch (const std::bad_alloc &) {
    write(level, what);
  }
}

void ErrorLog::report(const hosts::Report &report) {
  const std::string text = std::string(report.function) + ": " + std::string(report.text);
  const std::string client = report.client.empty() ? "" : describe_client(report.client, report.request);
  write(report.degree == 0 ? spdlog::level::err : spdlog::level::warn, text, client);
}

void ErrorLog::trouble(Trouble kind, std::string_view client, LineBudget::Clock::time_point now) {
  const auto index = static_cast<std::size_t>(kind);
  counts_[index].fetch_add(1, std::memory_order_relaxed);
  std::optional<std::size_t> suppressed;
  {
    const std::lock_guard lock(mutex_);
    suppressed = budgets_[index].take(now);
  }
  if (!suppressed) return;
  std::string text = std::string(troubles_by_kind[index].reason) + " (client " + std::string(client) + ")";
  if (*suppressed > 0) text += "; " + std::to_string(*suppressed) + " similar lines suppressed";
  warn(text);
}

bool ErrorLog::dropped(std::string_view name, std::size_t lines) {
  return write(spdlog::level::warn, "write " + std::string(name) + ": " + hosts::describe_dropped(lines));
}

/// line_prefix returns the text that a line of this level begins with.
std::string ErrorLog::line_prefix(int level) {
  spdlog::memory_buf_t begin;
  const std::lock_guard lock(mutex_);
  formatter_->format(spdlog::details::log_msg("", static_cast<spdlog::level::level_enum>(level), ""), begin);
  return {begin.data(), begin.size()};
}

bool ErrorLog::write(int level, std::string_view text, std::string_view client) {
  try {
    const std::string begin = line_prefix(level),
                      end = client.empty() ? "\n" : " (client " + std::string(client) + ")\n";
    const std::string line = begin + std::string(cut_text(text, error_line_limit - begin.size() - end.size())) + end;
    return file_ ? file_->write(line) : write_stream(stderr, line);
  } catch (const std::exception &) {
    return false;
  }
}

void ErrorLog::reopen() {
  if (!file_ || file_->reopen()) return;
  error("reopen the error log: " + std::generic_category().message(errno) + "; still writing to the old file");
}

}  // namespace rdm::rdmd
