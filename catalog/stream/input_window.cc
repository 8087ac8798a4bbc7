// SPDX-License-Identifier: MIT
#include "catalog/stream/input_window.h"

namespace rdm::catalog {
namespace {

constexpr size_t least_step = 4096, largest_step = 1 << 18;
constexpr int64_t near = 16384;  // a jump of fewer bytes, over a value, does not count as one

}  // namespace

std::string_view InputWindow::from(int64_t offset) {
  if (offset < offset_ || offset >= end()) move_to(offset);
  return std::string_view(bytes_).substr(static_cast<size_t>(offset - offset_));
}

std::optional<std::string_view> InputWindow::held(int64_t begin, int64_t end) const {
  if (begin < offset_ || end > this->end()) return std::nullopt;
  return std::string_view(bytes_).substr(static_cast<size_t>(begin - offset_), static_cast<size_t>(end - begin));
}

void InputWindow::move_to(int64_t offset) {
  const bool moves_on = offset >= end() && offset - end() < near;
  step_ = moves_on ? std::min(std::max(2 * step_, least_step), largest_step) : least_step;
  offset_ = offset;
  bytes_.resize(step_);
  bytes_.resize(read_(offset, bytes_.data(), step_));
}

void WindowInput::seek(int64_t offset) {
  met_end_ = false;
  const int64_t from_here = offset - this->offset();
  if (from_here >= 0 && from_here <= end_ - at_) {
    at_ += from_here;
  } else {
    at_ = end_ = nullptr;
    end_offset_ = offset;
  }
}

bool WindowInput::load() {
  const std::string_view bytes = window_.from(end_offset_);
  at_ = bytes.data();
  end_ = at_ + bytes.size();
  end_offset_ += static_cast<int64_t>(bytes.size());
  met_end_ = bytes.empty();
  return !met_end_;
}

}  // namespace rdm::catalog
