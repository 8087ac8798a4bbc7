// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/transform.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/rdmd/transform/accept_encoding.h"
#include "hosts/rdmd/transform/gzip.h"
#include "qxapi/ascii.h"

namespace rdm::rdmd {
namespace {

/// field returns the value of a request header, or null if the request has none.
const std::string *field(const hosts::ServiceRequest &request, std::string_view name) {
  const auto found = std::find_if(request.headers.begin(), request.headers.end(),
                                  [name](const hosts::Field &header) { return header.name == name; });
  return found == request.headers.end() ? nullptr : &found->value;
}

bool is_whole_body(const hosts::ServiceAnswer &answer) {
  return answer.outcome == hosts::Outcome::answered && answer.delimited && answer.head.status == 200;
}

bool can_be_compressed(const hosts::ServiceAnswer &answer) {
  return answer.head.length >= least_compressed && answer.head.length <= most_compressed &&
         !hosts::has_field(answer.head, "content-encoding") && !hosts::has_field(answer.head, "etag");
}

void set_length(hosts::Head &head, std::int64_t length) {
  head.length = length;
  for (hosts::Field &field : head.fields)
    if (ascii::iequals(field.name, "content-length")) field.value = std::to_string(length);
}

/// compress replaces the body. Returns false, and leaves the answer as it is, if it cannot be compressed.
bool compress(hosts::ServiceAnswer &answer) {
  std::optional<std::vector<hosts::Piece>> compressed = gzip(answer.pieces);
  if (!compressed) return false;
  std::int64_t length = 0;
  for (const hosts::Piece &piece : *compressed) length += piece.length;
  answer.head.fields.push_back({"Content-Encoding", "gzip"});
  set_length(answer.head, length);
  answer.pieces = std::move(*compressed);
  return true;
}

}  // namespace

Wishes read_wishes(const hosts::ServiceRequest &request) {
  Wishes wishes;
  wishes.head_only = request.head_only;
  const std::string *const encodings = field(request, "accept-encoding");
  wishes.gzip = encodings != nullptr && accepts_gzip(*encodings);
  return wishes;
}

void transform(hosts::ServiceAnswer &answer, const Wishes &wishes, bool may_compress) {
  if (wishes.head_only || !is_whole_body(answer) || !may_compress || !can_be_compressed(answer)) return;
  answer.head.fields.push_back({"Vary", "Accept-Encoding"});
  if (wishes.gzip) compress(answer);
}

hosts::ServiceAnswer answer_request(hosts::Plugin &plugin, hosts::ServiceRequest request, bool may_compress) {
  const Wishes wishes = read_wishes(request);
  hosts::ServiceAnswer answer = hosts::call_service(plugin, std::move(request));
  transform(answer, wishes, may_compress);
  return answer;
}

}  // namespace rdm::rdmd
