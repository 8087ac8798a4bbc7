// SPDX-License-Identifier: MIT
#include "tools/rdm/answer.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"
#include "qxapi/ascii.h"
#include "qxapi/temporary_directory.h"
#include "tools/rdm/error.h"

namespace rdm::client {
namespace {

using catalog::ObjectView;
using catalog::SoifStream;

constexpr char no_results[] = "0 results.";

bool is_busy(int status) { return status == 408 || status == 429 || status >= 500; }

bool is_redirection(const HttpReply &reply) { return reply.status >= 300 && reply.status < 400; }

std::string http_status(const HttpReply &reply) {
  std::string text = "HTTP status " + std::to_string(reply.status);
  if (is_redirection(reply) && !reply.location.empty()) text += ": moved to " + reply.location;
  if (is_redirection(reply)) text += " (redirections are not followed)";
  if (reply.status == 401 || reply.status == 407) text += " (passwords come from .netrc or the URL)";
  return text;
}

bool is_rdm(const HttpReply &reply) { return reply.content_type == "application/x-rdm"; }

/// stream_of reads the objects of a scratch file in place, from offset 0: at its end, a stream moves the offset.
SoifStream stream_of(catalog::ScratchFile &body) {
  if (::lseek(body.descriptor(), 0, SEEK_SET) != 0) throw catalog::system_failure("lseek in the answer");
  return SoifStream(
      body.descriptor(), named_temporary_directory(), [](int64_t) {}, "the answer");
}

/// is_blank returns true if there is only white space in a part of a file.
bool is_blank(const catalog::ScratchFile &file, int64_t begin, int64_t end) {
  char block[4096];
  while (begin < end) {
    const size_t count = static_cast<size_t>(std::min<int64_t>(end - begin, sizeof block));
    file.read(begin, block, count);
    if (!std::all_of(block, block + count, [](char c) { return ascii::is_space(c); })) return false;
    begin += static_cast<int64_t>(count);
  }
  return true;
}

/// value_of returns the value of an attribute without white space at its end, which some messages have.
std::string value_of(const ObjectView &object, std::string_view name) {
  std::string value(object.find(name).value_or(std::string_view()));
  while (!value.empty() && ascii::is_space(value.back())) value.pop_back();
  return value;
}

}  // namespace

Answer::Answer(const Request &request, HttpReply reply, catalog::ScratchFile body)
    : reply_(std::move(reply)), body_(std::move(body)) {
  verify_http();
  if (!fault_.empty() && !is_cut_) return;
  verify_header(request);
  if (body_start_ > 0 && request.type != "status-request") verify_objects();
}

/// doubt notes the first fault.
void Answer::doubt(const std::string &fault) {
  if (fault_.empty()) fault_ = fault;
}

void Answer::verify_http() {
  // No more than the head of a redirection matters.
  if (reply_.transfer == Transfer::unframed && is_redirection(reply_)) throw Distrust(http_status(reply_));
  if (reply_.transfer == Transfer::hopeless || reply_.transfer == Transfer::unframed) throw Distrust(reply_.error);
  if (is_busy(reply_.status)) return doubt(http_status(reply_));
  if (reply_.transfer == Transfer::failed) return doubt(reply_.error);
  if (reply_.status != 200 && !(is_rdm(reply_) && reply_.status == 403)) throw Distrust(http_status(reply_));
  if (!is_rdm(reply_))
    throw Distrust("the answer is of type \"" + reply_.content_type + "\" instead of application/x-rdm");
  if (!reply_.encoding.empty()) throw Distrust("the answer is encoded as \"" + reply_.encoding + "\"");
  is_cut_ = reply_.transfer == Transfer::cut;
  if (is_cut_) return doubt(reply_.error);
  if (reply_.received != body_.size()) throw Failure("the answer was not kept as it was received");
}

/// verify_header leaves body_start_ 0 if the answer was cut within the header.
void Answer::verify_header(const Request &request) {
  SoifStream stream = stream_of(body_);
  const std::optional<SoifStream::Item> header = stream.next();
  if (is_cut_ && (!header || !header->object)) return;
  if (!header || !catalog::is_header(*header) || !is_blank(body_, 0, header->offset))
    throw Distrust("the answer does not begin with an RDM header");
  const ObjectView &object = *header->object;
  if (value_of(object, "rdm-version") != "1.0") throw Distrust("the answer is not of RDM version 1.0");
  const std::string type = value_of(object, "rdm-type"), message = value_of(object, "rdm-error-message");
  const bool fits = ascii::iequals(type, answer_type(request.type));
  if (!fits && !ascii::iequals(type, "status-response"))
    throw Distrust("the answer is of type \"" + type + "\" instead of " + answer_type(request.type));
  is_empty_ = request.query && fits && message == no_results;
  if (!message.empty() && !is_empty_) throw Refusal(message);
  if (!fits) throw Distrust("the server answers with its status instead of " + answer_type(request.type));
  if (reply_.status != 200) throw Distrust(http_status(reply_));
  body_start_ = header->end;
}

void Answer::verify_objects() {
  SoifStream stream = stream_of(body_);
  int64_t end = stream.next()->end;
  while (const std::optional<SoifStream::Item> item = stream.next()) {
    const bool is_sound = item->object && is_blank(body_, end, item->offset);
    if (!is_sound && is_cut_) return;
    if (!is_sound)
      return doubt("object " + std::to_string(objects_ + 1) + " of the answer is damaged" +
                   (item->reason.empty() ? "" : ": " + item->reason));
    ++objects_;
    end = item->end;
  }
  if (is_cut_) return;
  if (!is_blank(body_, end, body_.size())) doubt("the answer ends with bytes that belong to no object");
  if (is_empty_ && objects_ > 0) throw Distrust("the header says \"0 results.\" and descriptions follow");
}

void Answer::each(const Visitor &visit) {
  SoifStream stream = stream_of(body_);
  stream.next();
  for (int64_t i = 0; i < objects_; ++i) {
    const std::optional<SoifStream::Item> item = stream.next();
    if (!item || !item->object) throw Failure("the scratch file of the answer has changed");
    visit(*item->object, stream.bytes_of(*item));
  }
}

std::string Answer::text(int64_t offset, int64_t count) const {
  std::string bytes(static_cast<size_t>(std::clamp<int64_t>(body_.size() - offset, 0, count)), '\0');
  body_.read(offset, bytes.data(), bytes.size());
  return bytes;
}

}  // namespace rdm::client
