// SPDX-License-Identifier: MIT
/// Changes to an answer of the plug-in on its way to the client, by the fields of the request. The plug-in, its logs
/// and its bytes know nothing of them.
#ifndef HOSTS_RDMD_TRANSFORM_TRANSFORM_H
#define HOSTS_RDMD_TRANSFORM_TRANSFORM_H

#include <cstdint>

#include "hosts/common/service_call.h"

namespace rdm::rdmd {

/// Bodies of fewer bytes are not compressed, because a client gains nothing, and of more bytes neither, because a
/// worker would be busy for seconds.
inline constexpr std::int64_t least_compressed = 1024;
inline constexpr std::int64_t most_compressed = std::int64_t{256} << 20;

/// Wishes is what a request says about the form of its answer.
struct Wishes {
  bool head_only = false;
  bool gzip = false;  // the client prefers it
};

Wishes read_wishes(const hosts::ServiceRequest &request);

/// transform compresses the body for a client that prefers it, if `may_compress` and it is a complete body with status
/// 200, a declared length between the limits above and no coding or entity tag of its own. Every answer that these
/// conditions allow to be compressed gets "Vary: Accept-Encoding". Answers to HEAD stay as they are.
void transform(hosts::ServiceAnswer &answer, const Wishes &wishes, bool may_compress);

/// answer_request calls the plug-in and transforms its answer. Throws std::bad_alloc.
hosts::ServiceAnswer answer_request(hosts::Plugin &plugin, hosts::ServiceRequest request, bool may_compress);

}  // namespace rdm::rdmd

#endif
