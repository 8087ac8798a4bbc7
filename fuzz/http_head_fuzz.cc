// SPDX-License-Identifier: MIT
/// Reads any bytes as the head of an HTTP request. The result must not depend on how the bytes are split, except that
/// the reason of a refusal may differ if the head arrives at once.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "hosts/rdmd/front/request_head.h"
#include "hosts/rdmd/front/request_target.h"

using namespace rdm;

namespace {

constexpr rdmd::HeadLimits limits{4096, 1024, 200};

rdmd::HeadResult read(std::string_view bytes, size_t piece) {
  rdmd::HeadReader reader(limits);
  std::string buffer;
  rdmd::HeadResult result;
  while (!bytes.empty() && std::holds_alternative<rdmd::NeedMore>(result)) {
    buffer.append(bytes.substr(0, piece));
    bytes.remove_prefix(std::min(piece, bytes.size()));
    result = reader.take(buffer);
  }
  return result;
}

bool same(const hosts::Field &one, const hosts::Field &other) {
  return one.name == other.name && one.value == other.value;
}

bool same_fields(const rdmd::RequestHead &one, const rdmd::RequestHead &other) {
  return std::equal(one.fields.begin(), one.fields.end(), other.fields.begin(), other.fields.end(), same);
}

void check(const rdmd::RequestHead &head, const rdmd::RequestHead &other) {
  fuzz::require(head.line == other.line && head.method == other.method && head.target == other.target,
                "the request line depends on how the head arrives");
  fuzz::require(same_fields(head, other), "the fields depend on how the head arrives");
  fuzz::require(head.http11 == other.http11 && head.length == other.length && head.keep_alive == other.keep_alive &&
                    head.expects_continue == other.expects_continue,
                "the framing depends on how the head arrives");
  fuzz::require(head.field("transfer-encoding").empty(), "a head with Transfer-Encoding was accepted");
  fuzz::require(head.fields.size() <= limits.fields, "a head has more fields than the limit");
  const std::string_view host = head.field("host");
  fuzz::require(host.find_first_of(" \t/?#@\\\"") == std::string_view::npos, "a malformed Host was accepted");
  const auto target = rdmd::parse_target(head.target);
  if (!target) return;
  fuzz::require(head.target.find('#') == std::string::npos, "a target with a fragment was accepted");
  fuzz::require(target->path == "*" || target->path.front() == '/', "a path does not begin with a slash");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string_view input = fuzz::text(data, size);
  const size_t piece = 1 + fuzz::take(input, 1);
  const rdmd::HeadResult whole = read(input, input.size()), pieces = read(input, piece);
  const auto *head = std::get_if<rdmd::RequestHead>(&whole), *other = std::get_if<rdmd::RequestHead>(&pieces);
  fuzz::require((head == nullptr) == (other == nullptr), "acceptance depends on how the head arrives");
  if (head != nullptr) check(*head, *other);
  return 0;
}
