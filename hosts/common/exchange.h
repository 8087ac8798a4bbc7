// SPDX-License-Identifier: MIT
/// One request and its answer, as every host hands them to the plug-in: the five parameter blocks, the request body
/// read beforehand, the head that the plug-in freezes when it starts its answer, and the queue of what it sends.
///
/// A host fills an exchange, calls the plug-in with its session and request, and sends head and queue afterwards. No
/// client connection is touched in between. An exchange is used by one thread at a time and stays where it was made,
/// because session and request point into it. Members throw std::bad_alloc; those that the plug-in reaches through the
/// host table (start, write, send_file) are called under a guard there.
#ifndef HOSTS_COMMON_EXCHANGE_H
#define HOSTS_COMMON_EXCHANGE_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/common/head.h"
#include "hosts/common/output_queue.h"
#include "qxapi/guard.h"

namespace rdm::hosts {
class Exchange;
}

/// host_net is the client connection as the plug-in sees it: the exchange whose answer it writes.
struct host_net {
  rdm::hosts::Exchange *exchange;
};

namespace rdm::hosts {

class Exchange {
 public:
  Exchange();
  Exchange(const Exchange &) = delete;
  Exchange &operator=(const Exchange &) = delete;

  /* ---- The request: filled by the host before the plug-in is called ---- */

  /// client adds to the session's client block: "ip".
  void client(const std::string &name, const std::string &value) { add(client_, name, value); }
  /// line adds to the request-line block: "method", "uri" and, when the target has one, "query".
  void line(const std::string &name, const std::string &value) { add(line_, name, value); }
  /// header adds a request header; `name` is in lower case.
  void header(const std::string &name, const std::string &value) { add(headers_, name, value); }
  /// input sets the request body, at most 2 GiB.
  void input(std::string body);
  /// head_only has the body of the answer counted but not queued, as an answer to HEAD needs it.
  void head_only() { head_only_ = true; }

  /* ---- The plug-in's side ---- */

  Session *session() { return &session_; }
  Request *request() { return &request_; }

  /// set_status sets status and reason (null: the usual text) of a head that is not yet frozen.
  void set_status(int status, const char *reason);

  /// start freezes the head. False when it was frozen before, which leaves it as it is.
  bool start();

  /// write queues `bytes`, freezing the head first where nobody did. Bytes beyond the declared length are not queued.
  /// False when not all of them were queued, with errno EMSGSIZE or what the queue left.
  bool write(std::string_view bytes);

  /// send_file queues `length` bytes of an open file from `offset` on, like write, but a file longer than the declared
  /// length is only cut. The bytes queued, or -1 with errno set.
  std::int64_t send_file(host_fd fd, std::int64_t offset, std::int64_t length);

  /* ---- The answer: read by the host after the plug-in has returned ---- */

  /// started tells whether the plug-in answered at all.
  bool started() const { return head_.has_value(); }
  /// head is the frozen head; only after started.
  const Head &head() const { return *head_; }
  /// delimited tells whether the client can see where the answer ends: it has the length that it declared, or no body.
  bool delimited() const { return started() && (head_only_ || head_->length == written_); }
  OutputQueue &queue() { return queue_; }
  /// client_text returns a value of the client block, empty when absent.
  std::string client_text(const char *name) const;

 private:
  static void add(const PblockPtr &block, const std::string &name, const std::string &value);
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
  std::int64_t written_ = 0;  // bytes the plug-in wrote, whether queued or only counted
  bool head_only_ = false;
};

/// exchange_of returns the exchange of a session that Exchange made, or null for none.
Exchange *exchange_of(const Session *session);

}  // namespace rdm::hosts

#endif
