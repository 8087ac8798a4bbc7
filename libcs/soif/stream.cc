// SPDX-License-Identifier: MIT
#include "libcs/soif/stream.h"

#include <algorithm>

#include "qxapi/fatal.h"

soif_stream _soif_state[256];

using namespace rdm;

namespace {

/// True once the table, which programs can access, has been cleared before its first use.
bool _soif_state_initialized;

void _soif_state_init() {
  std::fill(std::begin(_soif_state), std::end(_soif_state), soif_stream{});
  _soif_state_initialized = true;
}

}  // namespace

namespace rdm::soif {

int activate() noexcept {
  if (!_soif_state_initialized) _soif_state_init();
  soif_stream *free_slot =
      std::find_if(std::begin(_soif_state), std::end(_soif_state), [](const soif_stream &s) { return s.in_use == 0; });
  QX_REQUIRE(free_slot != std::end(_soif_state), "soif", "a stream slot is free");
  free_slot->in_use = 1;
  return static_cast<int>(free_slot - _soif_state);
}

void deactivate(int stream) noexcept {
  if (soif_stream *taken = slot(stream)) *taken = soif_stream{};
}

}  // namespace rdm::soif
