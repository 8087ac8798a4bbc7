// SPDX-License-Identifier: MIT
/// SHA-256 digests.
#ifndef TOOLS_RDM_DIGEST_H
#define TOOLS_RDM_DIGEST_H

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace rdm::client {

using Digest = std::array<unsigned char, 32>;

/// digest_of returns the SHA-256 digest of a text.
Digest digest_of(std::string_view text);
/// hex_of returns a digest as 64 lower-case hexadecimal digits. digest_in is its inverse; it returns std::nullopt for
/// another text.
std::string hex_of(const Digest &digest);
std::optional<Digest> digest_in(std::string_view hex);

/// DigestHash is the hash for containers: the bits of a digest are as good as random.
struct DigestHash {
  std::size_t operator()(const Digest &digest) const noexcept {
    std::size_t hash = 0;
    std::memcpy(&hash, digest.data(), sizeof hash);
    return hash;
  }
};

}  // namespace rdm::client

#endif
