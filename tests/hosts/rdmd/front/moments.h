// SPDX-License-Identifier: MIT
/// Points in time, and addresses of clients.
#ifndef TESTS_HOSTS_RDMD_FRONT_MOMENTS_H
#define TESTS_HOSTS_RDMD_FRONT_MOMENTS_H

#include <chrono>
#include <string>

#include "hosts/rdmd/front/client_key.h"
#include "hosts/rdmd/front/io.h"

namespace rdm::support {

/// at returns a point in time, some milliseconds after another.
inline rdmd::io::Clock::time_point at(std::chrono::milliseconds time) {
  return rdmd::io::Clock::time_point{std::chrono::hours(10)} + time;
}

/// client returns the address of a client by its number, up to 255.
inline rdmd::ClientKey client(int number) {
  return rdmd::ClientKey::parse("192.0.2." + std::to_string(number)).value();
}

}  // namespace rdm::support

#endif
