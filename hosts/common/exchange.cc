// SPDX-License-Identifier: MIT
#include "hosts/common/exchange.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <new>
#include <utility>

namespace rdm::hosts {
namespace {

PblockPtr make_block(int slots) {
  PblockPtr block(host_param_create(slots));
  if (!block) throw std::bad_alloc();
  return block;
}

}  // namespace

Exchange::Exchange()
    : client_(make_block(3)),
      line_(make_block(5)),
      headers_(make_block(20)),
      response_(make_block(7)),
      vars_(make_block(5)) {
  session_ = Session{client_.get(), &net_, &input_, this};
  request_ = Request{line_.get(), headers_.get(), response_.get(), vars_.get(), 200, this};
}

void Exchange::add(const PblockPtr &block, const std::string &name, const std::string &value) {
  if (host_param_add(name.c_str(), value.c_str(), block.get()) != 0) throw std::bad_alloc();
}

std::string Exchange::text_of(const PblockPtr &block, const char *name) {
  const char *value = host_param_find(name, block.get());
  return value == nullptr ? "" : value;
}

void Exchange::input(std::string body) {
  body_ = std::move(body);
  input_ = host_input{reinterpret_cast<const unsigned char *>(body_.data()), 0, static_cast<std::int32_t>(body_.size()),
                      this};
}

void Exchange::set_status(int status, const char *reason) {
  request_.status = status;
  reason_ = reason == nullptr ? "" : reason;
}

bool Exchange::start() {
  if (started()) return false;
  head_ = freeze_head(request_.status, reason_, *response_);
  if (!has_body(head_->status)) head_only();
  return true;
}

std::int64_t Exchange::remaining_length() const {
  return head_->length.value_or(std::numeric_limits<std::int64_t>::max()) - written_;
}

bool Exchange::write(std::string_view bytes) {
  start();
  const std::string_view fits = bytes.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(
                                                    bytes.size(), static_cast<std::uint64_t>(remaining_length()))));
  const std::size_t queued = head_only_ ? fits.size() : queue_.append(fits);
  written_ += static_cast<std::int64_t>(queued);
  if (queued < fits.size()) return false;
  if (fits.size() == bytes.size()) return true;
  errno = EMSGSIZE;
  return false;
}

std::int64_t Exchange::send_file(host_fd fd, std::int64_t offset, std::int64_t length) {
  start();
  const std::int64_t fits = std::clamp<std::int64_t>(length, 0, remaining_length());
  if (!head_only_ && !queue_.append_file(fd, offset, fits)) return -1;
  written_ += fits;
  return fits;
}

std::int64_t Exchange::send_slice(const host_slice &slice) {
  start();
  if (slice.length > remaining_length()) {
    errno = EMSGSIZE;
    return -1;
  }
  if (!head_only_ && !queue_.append_slice(slice)) return -1;
  written_ += slice.length;
  return slice.length;
}

Exchange *exchange_of(const Session *session) {
  return session == nullptr ? nullptr : static_cast<Exchange *>(session->host);
}

}  // namespace rdm::hosts
