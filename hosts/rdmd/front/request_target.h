// SPDX-License-Identifier: MIT
/// Makes what the plug-in sees of a request from its head.
#ifndef HOSTS_RDMD_FRONT_REQUEST_TARGET_H
#define HOSTS_RDMD_FRONT_REQUEST_TARGET_H

#include <optional>
#include <string>
#include <string_view>

#include "hosts/common/service_call.h"
#include "hosts/rdmd/front/request_head.h"

namespace rdm::rdmd {

/// Target is a parsed request target: the decoded path, and the query as sent, which may be empty.
struct Target {
  std::string path;
  std::optional<std::string> query;
};

/// parse_target parses a target: a path with an optional query, the same after "http://host" or "https://host", or "*".
/// Returns std::nullopt for any other form, a malformed host, a fragment ("#"), a "%" without two hexadecimal digits,
/// or an encoded NUL.
std::optional<Target> parse_target(std::string_view target);

/// is_service_path returns true if a path begins with "/rdm/" in any letter case, so that the plug-in serves it.
bool is_service_path(std::string_view path);

/// make_request returns what the plug-in sees of a request, but for its body, and takes the fields out of the head. A
/// content length above INT32_MAX is passed on as INT32_MAX, because the plug-in reads 32 bits.
hosts::ServiceRequest make_request(RequestHead &head, Target target, const std::string &client_ip);

}  // namespace rdm::rdmd

#endif
