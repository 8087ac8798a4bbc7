// SPDX-License-Identifier: MIT
/// From a request head to the exchange that the plug-in sees.
#ifndef HOSTS_RDMD_REQUEST_TARGET_H
#define HOSTS_RDMD_REQUEST_TARGET_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "hosts/common/exchange.h"
#include "hosts/rdmd/request_head.h"

namespace rdm::rdmd {

/// Target is a request target taken apart: the decoded path, and the query as it was sent, which may be empty.
struct Target {
  std::string path;
  std::optional<std::string> query;
};

/// parse_target takes a target apart: a path with an optional query, the same behind "http://host" or "https://host",
/// or "*". Nothing for any other form, for a malformed host, for a fragment ("#"), for an escape without two
/// hexadecimal digits and for an encoded NUL.
std::optional<Target> parse_target(std::string_view target);

/// is_service_path tells whether a path is the plug-in's: it begins with "/rdm/", in any letter case.
bool is_service_path(std::string_view path);

/// make_exchange fills an exchange with everything but the request body. A content length beyond 32 bits is passed on
/// as the largest number of 32 bits, which is how the plug-in reads it.
std::unique_ptr<hosts::Exchange> make_exchange(const RequestHead &head, const Target &target,
                                               const std::string &client_ip);

}  // namespace rdm::rdmd

#endif
