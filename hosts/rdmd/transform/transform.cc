// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/transform.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosts/common/http_date.h"
#include "hosts/rdmd/transform/accept_encoding.h"
#include "hosts/rdmd/transform/gzip.h"
#include "hosts/rdmd/transform/validators.h"
#include "qxapi/ascii.h"

namespace rdm::rdmd {
namespace {

/// entry returns the value of an entry of a block of a request, if it is there.
std::optional<std::string> entry(const std::vector<hosts::Field> &block, std::string_view name) {
  const auto found =
      std::find_if(block.begin(), block.end(), [name](const hosts::Field &field) { return field.name == name; });
  return found == block.end() ? std::nullopt : std::optional(found->value);
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

std::optional<Validators> find_validators(const hosts::ServiceAnswer &answer, const Wishes &wishes, std::time_t now) {
  const bool has_own = hosts::has_field(answer.head, "etag") || hosts::has_field(answer.head, "last-modified");
  return wishes.validates && !has_own ? validators_of(answer.pieces, now) : std::nullopt;
}

/// held_tag returns the tag of the form of the body that the client has, according to its conditions, or an empty text.
/// `selected` is the tag of the form that would be sent.
std::string held_tag(const Wishes &wishes, const Validators &validators, const std::string &selected) {
  if (!wishes.if_none_match) {
    const bool held = wishes.if_modified_since && is_unmodified_since(*wishes.if_modified_since, validators.modified);
    return held ? selected : "";
  }
  for (const std::string &tag : {selected, validators.tag})
    if (lists_tag(*wishes.if_none_match, tag)) return tag;
  return "";
}

void add_validators(hosts::Head &head, const std::string &tag, std::time_t modified) {
  head.fields.push_back({"ETag", tag});
  head.fields.push_back({"Last-Modified", hosts::http_date(modified)});
}

void drop_body(hosts::ServiceAnswer &answer) {
  answer.head.status = 304;
  answer.head.reason.clear();
  answer.head.length.reset();
  std::erase_if(answer.head.fields,
                [](const hosts::Field &field) { return ascii::istarts_with(field.name, "content-"); });
  answer.pieces.clear();
}

}  // namespace

Wishes read_wishes(const hosts::ServiceRequest &request) {
  Wishes wishes;
  wishes.head_only = request.head_only;
  wishes.gzip = accepts_gzip(entry(request.headers, "accept-encoding").value_or(""));
  wishes.validates = entry(request.line, "method") == "GET";
  if (!wishes.validates) return wishes;
  wishes.if_none_match = entry(request.headers, "if-none-match");
  wishes.if_modified_since = entry(request.headers, "if-modified-since");
  return wishes;
}

void transform(hosts::ServiceAnswer &answer, const Wishes &wishes, bool may_compress, std::time_t now) {
  if (wishes.head_only || !is_whole_body(answer)) return;
  const std::optional<Validators> validators = find_validators(answer, wishes, now);
  const bool varies = may_compress && can_be_compressed(answer);
  const bool compresses = varies && wishes.gzip;
  if (varies) answer.head.fields.push_back({"Vary", "Accept-Encoding"});
  const std::string held =
      validators ? held_tag(wishes, *validators, compresses ? validators->gzip_tag : validators->tag) : "";
  if (!held.empty()) {
    drop_body(answer);
    return add_validators(answer.head, held, validators->modified);
  }
  const bool compressed = compresses && compress(answer);
  if (validators)
    add_validators(answer.head, compressed ? validators->gzip_tag : validators->tag, validators->modified);
}

hosts::ServiceAnswer answer_request(hosts::Plugin &plugin, hosts::ServiceRequest &&request, bool may_compress) {
  const Wishes wishes = read_wishes(request);
  hosts::ServiceAnswer answer = hosts::call_service(plugin, std::move(request));
  transform(answer, wishes, may_compress, std::time(nullptr));
  return answer;
}

}  // namespace rdm::rdmd
