// SPDX-License-Identifier: MIT
/// Changes to an answer of the plug-in on its way to the client, by the fields of the request. The plug-in, its logs
/// and its bytes know nothing of them.
#ifndef HOSTS_RDMD_TRANSFORM_TRANSFORM_H
#define HOSTS_RDMD_TRANSFORM_TRANSFORM_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

#include "hosts/common/service_call.h"

namespace rdm::rdmd {

/// Bodies of fewer bytes are not compressed, because a client gains nothing, and of more bytes neither, because a
/// worker would be busy for seconds.
inline constexpr std::int64_t least_compressed = 1024;
inline constexpr std::int64_t most_compressed = std::int64_t{256} << 20;

/// Wishes is what a request says about the form of its answer.
struct Wishes {
  bool head_only = false;
  bool gzip = false;       // the client prefers it
  bool validates = false;  // a GET: the answer may have validators
  // The fields of a GET.
  std::optional<std::string> if_none_match = {}, if_modified_since = {};
};

Wishes read_wishes(const hosts::ServiceRequest &request);

/// transform changes an answer that has a complete body and status 200; others, and answers to HEAD, stay as they are.
/// - It compresses the body for a client that prefers that, if `may_compress` and the body has a declared length
/// between
///   the limits above and no coding or entity tag of its own. Every answer that these conditions allow to be compressed
///   gets "Vary: Accept-Encoding".
/// - An answer to GET whose body is a prepared file (see validators_of, also for `now`) gets ETag and Last-Modified, or
///   becomes a 304 if the conditions of the request say that the client has it, unless it has either field already.
void transform(hosts::ServiceAnswer &answer, const Wishes &wishes, bool may_compress, std::time_t now);

/// answer_request calls the plug-in and transforms its answer. Throws std::bad_alloc.
hosts::ServiceAnswer answer_request(hosts::Plugin &plugin, hosts::ServiceRequest &&request, bool may_compress);

}  // namespace rdm::rdmd

#endif
