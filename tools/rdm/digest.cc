// SPDX-License-Identifier: MIT
#include "tools/rdm/digest.h"

#include <new>

#include <openssl/evp.h>

#include "qxapi/hex.h"

namespace rdm::client {

Digest digest_of(std::string_view text) {
  Digest digest;
  if (EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
  return digest;
}

std::string hex_of(const Digest &digest) {
  std::string text;
  for (const unsigned char byte : digest) {
    text += hex::digits[byte >> 4];
    text += hex::digits[byte & 15];
  }
  return text;
}

std::optional<Digest> digest_in(std::string_view hex) {
  Digest digest;
  if (hex.size() != 2 * digest.size()) return std::nullopt;
  for (std::size_t i = 0; i < digest.size(); ++i) {
    const int high = hex::value_of(hex[2 * i]), low = hex::value_of(hex[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    digest[i] = static_cast<unsigned char>(high << 4 | low);
  }
  if (hex_of(digest) != hex) return std::nullopt;  // upper case
  return digest;
}

}  // namespace rdm::client
