// SPDX-License-Identifier: MIT
/// Answers of a server, and their verification.
#ifndef TOOLS_RDM_ANSWER_H
#define TOOLS_RDM_ANSWER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "catalog/object_view.h"
#include "catalog/os/file.h"
#include "tools/rdm/http.h"
#include "tools/rdm/message.h"

namespace rdm::client {

/// Answer is the answer to a request, in a scratch file: memory does not grow with it, nor with what it announces.
class Answer {
 public:
  /// Answer verifies what has arrived: the HTTP status and the content type, the header, and each object after it with
  /// all its byte counts. Between objects only white space is accepted. An answer that was cut is verified as far as it
  /// goes. Throws a Refusal if the server refuses the request, and a Distrust if this is no answer to the request and
  /// another attempt would not help.
  Answer(const Request &request, HttpReply reply, catalog::ScratchFile body);

  /// fault returns the reason why the answer is not whole or not sound, though another attempt may get one that is;
  /// empty if it is whole and verified. is_cut returns true if it is sound as far as it goes.
  const std::string &fault() const { return fault_; }
  bool is_cut() const { return is_cut_; }
  /// reply returns the facts of the exchange.
  const HttpReply &reply() const { return reply_; }
  /// objects returns the number of verified objects after the header.
  int64_t objects() const { return objects_; }

  /// each visits the verified objects in order, with their bytes as they were sent.
  using Visitor = std::function<void(const catalog::ObjectView &object, const std::string &bytes)>;
  void each(const Visitor &visit);

  /// body_start returns the offset of what follows the header, size the size of all, and text bytes of the answer.
  int64_t body_start() const { return body_start_; }
  int64_t size() const { return body_.size(); }
  std::string text(int64_t offset, int64_t count) const;

 private:
  void verify_http();
  void verify_header(const Request &request);
  void verify_objects();
  void doubt(const std::string &fault);

  HttpReply reply_;
  catalog::ScratchFile body_;
  std::string fault_;
  bool is_cut_ = false;
  bool is_empty_ = false;  // the header says that there are no results
  int64_t body_start_ = 0;
  int64_t objects_ = 0;
};

}  // namespace rdm::client

#endif
