// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_target.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include "qxapi/ascii.h"
#include "qxapi/hex.h"

namespace rdm::rdmd {
namespace {

/// decode resolves the escapes of a path. Returns std::nullopt if one is malformed or encodes NUL.
std::optional<std::string> decode(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      result.push_back(text[i]);
      continue;
    }
    const int byte = hex::escaped_byte(text.substr(i));
    if (byte <= 0) return std::nullopt;
    result.push_back(static_cast<char>(byte));
    i += 2;
  }
  return result;
}

/// without_authority removes "http://host" from the front of a target. Returns std::nullopt if the host is malformed.
std::optional<std::string_view> without_authority(std::string_view target) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (!ascii::istarts_with(target, scheme)) continue;
    target.remove_prefix(scheme.size());
    const std::size_t end = std::min(target.find_first_of("/?"), target.size());
    if (!is_authority(target.substr(0, end))) return std::nullopt;
    target.remove_prefix(end);
    return target.empty() ? "/" : target;
  }
  return target;
}

std::string announced_length(std::uint64_t length) {
  return std::to_string(std::min<std::uint64_t>(length, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

std::optional<Target> parse_target(std::string_view target) {
  if (target == "*") return Target{"*", std::nullopt};
  const std::optional<std::string_view> local = without_authority(target);
  // Clients must not send a fragment: it is not part of a target.
  if (!local || local->find('#') != std::string_view::npos) return std::nullopt;
  const auto mark = local->find('?');
  std::optional<std::string> path = decode(local->substr(0, mark));
  // In an absolute target the query may follow the host directly.
  if (path && path->empty() && local->size() != target.size()) path = "/";
  if (!path || path->empty() || path->front() != '/') return std::nullopt;
  Target result{std::move(*path), std::nullopt};
  if (mark != std::string_view::npos) result.query = local->substr(mark + 1);
  return result;
}

bool is_service_path(std::string_view path) { return ascii::istarts_with(path, "/rdm/"); }

hosts::ServiceRequest make_request(RequestHead &head, Target target, const std::string &client_ip) {
  hosts::ServiceRequest request;
  request.client.push_back({"ip", client_ip});
  request.line.reserve(3);
  request.line.push_back({"method", head.method});
  request.line.push_back({"uri", std::move(target.path)});
  if (target.query) request.line.push_back({"query", std::move(*target.query)});
  request.headers = std::exchange(head.fields, {});
  for (hosts::Field &field : request.headers)
    if (field.name == "content-length" && head.length) field.value = announced_length(*head.length);
  request.head_only = head.method == "HEAD";
  return request;
}

}  // namespace rdm::rdmd
