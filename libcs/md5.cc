// SPDX-License-Identifier: MIT
#include <md5.h>

#include <algorithm>
#include <array>

#include <libcs/cs.h>

namespace {

using Digest = std::array<unsigned char, MD5_DIGEST_LENGTH>;

Digest digest_of(const void *data, int32_t length) {
  Digest digest;
  MD5_CTX context;
  MD5Init(&context);
  if (length > 0) MD5Update(&context, static_cast<const unsigned char *>(data), static_cast<size_t>(length));
  MD5Final(digest.data(), &context);
  return digest;
}

}  // namespace

unsigned char *cs_mem2md5(const void *data, int32_t length, unsigned char *out16) noexcept {
  const Digest digest = digest_of(data, length);
  std::copy(digest.begin(), digest.end(), out16);
  return out16;
}

int cs_mem2md5str(const void *data, int32_t length, char *out33) noexcept {
  constexpr size_t byte_text = sizeof "00";
  int written = 0;
  for (const unsigned char byte : digest_of(data, length)) {
    written = host_format(out33, byte_text, "%02x", byte);
    out33 += written;
  }
  return written;
}
