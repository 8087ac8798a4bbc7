// SPDX-License-Identifier: MIT
#include "hosts/rdmd/front/request_id.h"

#include <sys/random.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace rdm::rdmd {
namespace {

constexpr char digits[] = "0123456789abcdefghjkmnpqrstvwxyz";
constexpr std::size_t ids_at_a_time = 16;

/// Reserve holds random bytes that have not been used yet. getrandom() delivers up to 256 bytes in one piece.
struct Reserve {
  std::array<unsigned char, request_id_length * ids_at_a_time> bytes;
  std::size_t used = bytes.size();

  void refill() {
    for (std::size_t got = 0; got < bytes.size();) {
      const ssize_t count = ::getrandom(bytes.data() + got, bytes.size() - got, 0);
      if (count < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "getrandom");
      if (count > 0) got += static_cast<std::size_t>(count);
    }
    used = 0;
  }
};

}  // namespace

void renew_request_id(std::string &id) {
  static thread_local Reserve reserve;
  if (reserve.used == reserve.bytes.size()) reserve.refill();
  id.resize(request_id_length);
  for (char &digit : id) digit = digits[reserve.bytes[reserve.used++] % 32];
}

}  // namespace rdm::rdmd
