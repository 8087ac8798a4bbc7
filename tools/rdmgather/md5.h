// SPDX-License-Identifier: MIT
/// MD5 digests of bytes that arrive in pieces. cs_mem2md5 needs all of them in memory.
#ifndef RDMGATHER_MD5_H
#define RDMGATHER_MD5_H

#include <md5.h>

#include <string>
#include <string_view>

namespace rdm::gather {

class Md5 {
 public:
  Md5() { MD5Init(&context_); }
  void add(std::string_view bytes) {
    MD5Update(&context_, reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size());
  }
  /// hex returns the digest as 32 lower-case hexadecimal digits. Call it once.
  std::string hex() {
    char text[MD5_DIGEST_STRING_LENGTH];
    return MD5End(&context_, text);
  }

 private:
  MD5_CTX context_;
};

}  // namespace rdm::gather

#endif
