// SPDX-License-Identifier: MIT
/// The identifier of a request, by which its answer and its lines in the logs are found.
#ifndef HOSTS_RDMD_FRONT_REQUEST_ID_H
#define HOSTS_RDMD_FRONT_REQUEST_ID_H

#include <cstddef>
#include <string>

namespace rdm::rdmd {

/// The length of an identifier: 26 digits of base 32 (0 to 9 and a to z without i, l, o and u) are 130 bits.
inline constexpr std::size_t request_id_length = 26;

/// renew_request_id sets `id` to a new identifier, in the memory that it has. It is made of bytes of getrandom(), so
/// that no client can guess the identifier of another's request. Each thread fetches the bytes of several identifiers
/// at a time; call it only in a process that does not fork afterwards. Throws std::system_error if the system has no
/// random bytes.
void renew_request_id(std::string &id);

}  // namespace rdm::rdmd

#endif
