// SPDX-License-Identifier: MIT
/// The content codings that a client accepts.
#ifndef HOSTS_RDMD_TRANSFORM_ACCEPT_ENCODING_H
#define HOSTS_RDMD_TRANSFORM_ACCEPT_ENCODING_H

#include <string_view>

namespace rdm::rdmd {

/// accepts_gzip returns true if an Accept-Encoding field (RFC 9110, section 12.5.3) lists gzip, or "*", with a weight
/// above 0 and not below the weight that it gives to "identity". "x-gzip" means gzip. A member with a malformed weight
/// is ignored; of repeated members the first counts.
bool accepts_gzip(std::string_view accept_encoding);

}  // namespace rdm::rdmd

#endif
