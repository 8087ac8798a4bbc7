// SPDX-License-Identifier: MIT
/// SipHash-1-3, a keyed hash: a client that does not know the key cannot choose names that collide.
#ifndef QXAPI_SIP_HASH_H
#define QXAPI_SIP_HASH_H

#include <sys/random.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace rdm {

struct SipKey {
  uint64_t low, high;
};

/// SipState is the state of one hash computation.
class SipState {
 public:
  explicit constexpr SipState(SipKey key)
      : v0_(key.low ^ 0x736f6d6570736575),
        v1_(key.high ^ 0x646f72616e646f6d),
        v2_(key.low ^ 0x6c7967656e657261),
        v3_(key.high ^ 0x7465646279746573) {}

  constexpr void take(uint64_t word) {
    v3_ ^= word;
    round();
    v0_ ^= word;
  }

  constexpr uint64_t finish() {
    v2_ ^= 0xff;
    for (int i = 0; i < 3; ++i) round();
    return v0_ ^ v1_ ^ v2_ ^ v3_;
  }

 private:
  static constexpr void mix(uint64_t &a, uint64_t &b, int bits) {
    a += b;
    b = std::rotl(b, bits) ^ a;
  }

  constexpr void round() {
    mix(v0_, v1_, 13);
    v0_ = std::rotl(v0_, 32);
    mix(v2_, v3_, 16);
    mix(v0_, v3_, 21);
    mix(v2_, v1_, 17);
    v2_ = std::rotl(v2_, 32);
  }

  uint64_t v0_, v1_, v2_, v3_;
};

/// sip_hash returns the hash of a text: of its 8-byte words in little-endian order, then the remaining bytes with the
/// length in the top byte.
inline uint64_t sip_hash(SipKey key, std::string_view text) noexcept {
  static_assert(std::endian::native == std::endian::little, "words are read in the machine's byte order");
  SipState state(key);
  const auto length = static_cast<uint64_t>(text.size());
  for (; text.size() >= sizeof(uint64_t); text.remove_prefix(sizeof(uint64_t))) {
    uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    state.take(word);
  }
  uint64_t rest = 0;
  if (!text.empty()) std::memcpy(&rest, text.data(), text.size());
  state.take(rest | length << 56);
  return state.finish();
}

/// process_sip_key returns a random key that stays the same for the life of the process.
inline SipKey process_sip_key() noexcept {
  static const SipKey key = [] {
    SipKey random{};
    // If getrandom() fails, the hash still distributes names; only the key is no longer secret.
    [[maybe_unused]] const ssize_t got = ::getrandom(&random, sizeof random, GRND_NONBLOCK);
    return random;
  }();
  return key;
}

}  // namespace rdm

#endif
