// SPDX-License-Identifier: MIT
/// One HTTP transaction as a host and the plug-in share it: five parameter blocks, the request body, the head that the
/// plug-in freezes when it starts its answer, and the queue of the body it sends.
///
/// The host fills an exchange, calls the plug-in with its session and request, and sends head and queue afterwards; the
/// client's socket is not used during the call. An exchange is used by one thread at a time and cannot be copied or
/// moved, because session and request point into it. Members throw std::bad_alloc; the host table catches it when the
/// plug-in calls start, write, send_file or send_slice.
#ifndef HOSTS_COMMON_EXCHANGE_H
#define HOSTS_COMMON_EXCHANGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "hosts/common/head.h"
#include "hosts/common/output_queue.h"
#include "qxapi/guard.h"

namespace rdm::hosts {
class Exchange;
}

/// host_net is the plug-in's view of the client connection: the exchange that receives the answer.
struct host_net {
  rdm::hosts::Exchange *exchange;
};

namespace rdm::hosts {

/// The variable in which a host puts the identifier of a request, for its reports.
inline constexpr char request_id_variable[] = "request-id";

class Exchange {
 public:
  Exchange();
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  /* ---- The request: filled by the host before the plug-in is called ---- */

  /// client adds an entry to the session's client block: "ip".
  void client(const std::string &name, const std::string &value) { add(client_, name, value); }
  /// line adds an entry to the request-line block: "method", "uri" and, if the target has one, "query".
  void line(const std::string &name, const std::string &value) { add(line_, name, value); }
  /// header adds a request header; `name` is in lower case.
  void header(const std::string &name, const std::string &value) { add(headers_, name, value); }
  /// variable adds an entry to the block of variables, which host and plug-in share.
  void variable(const std::string &name, const std::string &value) { add(vars_, name, value); }
  /// input sets the request body, at most 2 GiB.
  void input(std::string body);
  /// head_only makes the answer count its body without queueing it, for a HEAD request.
  void head_only() { head_only_ = true; }

  /* ---- The plug-in's side ---- */

  Session *session() { return &session_; }
  Request *request() { return &request_; }

  /// set_status sets status and reason (null: the usual text) of the head. It has no effect once the head is frozen.
  void set_status(int status, const char *reason);

  /// start freezes the head. Returns false, and changes nothing, if it is already frozen.
  bool start();

  /// write queues `bytes`, and freezes the head first if that has not been done. Bytes beyond the declared length are
  /// not queued. Returns true if all were queued; otherwise false, with errno EMSGSIZE or the error of the queue.
  bool write(std::string_view bytes);

  /// send_file queues `length` bytes of an open file from `offset` on. Unlike write, it cuts a file at the declared
  /// length without an error. Returns the number of bytes queued, or -1 with errno set.
  std::int64_t send_file(host_fd fd, std::int64_t offset, std::int64_t length);

  /// send_slice queues a slice, or nothing of it if it is longer than the rest of the declared length. Returns its
  /// length, or -1 with errno set.
  std::int64_t send_slice(const host_slice &slice);

  /* ---- The answer: read by the host after the plug-in has returned ---- */

  /// started returns true if the plug-in has started an answer.
  bool started() const { return head_.has_value(); }
  /// head returns the frozen head. Call it only if started() is true.
  const Head &head() const { return *head_; }
  /// take_head moves the frozen head out, as the last use of the exchange.
  Head take_head() { return std::move(*head_); }
  /// delimited returns true if the client can detect the end of the answer: the body has the declared length, or there
  /// is no body.
  bool delimited() const { return started() && (head_only_ || head_->length == written_); }
  OutputQueue &queue() { return queue_; }
  /// client_text returns a value of the client block, or an empty string if there is none.
  std::string client_text(const char *name) const { return text_of(client_, name); }
  /// variable returns the value of a variable, or an empty string if there is none.
  std::string variable(const char *name) const { return text_of(vars_, name); }

 private:
  static void add(const PblockPtr &block, const std::string &name, const std::string &value);
  static std::string text_of(const PblockPtr &block, const char *name);
  std::int64_t remaining_length() const;

  PblockPtr client_, line_, headers_, response_, vars_;
  std::string body_;
  host_input input_{};
  host_net net_{this};
  Session session_{};
  Request request_{};
  std::string reason_;
  std::optional<Head> head_;
  OutputQueue queue_;
  std::int64_t written_ = 0;  // body bytes accepted, including bytes for a HEAD, which are only counted
  bool head_only_ = false;
};

/// exchange_of returns the exchange of a session that Exchange made, or null if `session` is null.
Exchange *exchange_of(const Session *session);

}  // namespace rdm::hosts

#endif
