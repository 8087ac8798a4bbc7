// SPDX-License-Identifier: MIT
#include "tools/common/progress.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>

#include "qxapi/counted.h"

namespace rdm::tools {
namespace {

constexpr double quiet_seconds = 1;
constexpr double refresh_seconds = 0.2;

std::string size_text(double bytes) {
  static constexpr const char *units[] = {"B", "kB", "MB", "GB", "TB"};
  size_t unit = 0;
  for (; bytes >= 1000 && unit + 1 < std::size(units); ++unit) bytes /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
  return text;
}

std::string duration_text(double seconds) {
  const auto whole = static_cast<int64_t>(std::ceil(seconds));
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(whole / 60),
                static_cast<long long>(whole % 60));
  return text;
}

}  // namespace

Progress::Progress(std::ostream &errors, bool is_shown, std::string title, int64_t total_bytes, Clock clock)
    : errors_(errors),
      is_shown_(is_shown),
      title_(std::move(title)),
      total_bytes_(total_bytes),
      clock_(std::move(clock)),
      start_(clock_()),
      next_(start_ + quiet_seconds) {}

double Progress::steady_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string Progress::line(double elapsed) const {
  const auto bytes = static_cast<double>(bytes_);
  const std::string records = records_ == 0 ? "" : counted(records_, "record") + ", ";
  std::string text = title_ + ": " + records + size_text(bytes) + ", " + size_text(bytes / elapsed) + "/s";
  if (total_bytes_ >= bytes_ && bytes_ > 0)
    text += ", " + duration_text(static_cast<double>(total_bytes_ - bytes_) * elapsed / bytes) + " left";
  return text;
}

void Progress::advance(int64_t records, int64_t bytes) {
  records_ += records;
  bytes_ += bytes;
  if (!is_shown_) return;
  const double now = clock_();
  if (now < next_) return;
  next_ = now + refresh_seconds;
  is_on_screen_ = true;
  errors_ << '\r' << line(now - start_) << "\x1b[K" << std::flush;
}

void Progress::clear() {
  if (is_on_screen_) errors_ << "\r\x1b[K" << std::flush;
  is_on_screen_ = false;
}

}  // namespace rdm::tools
