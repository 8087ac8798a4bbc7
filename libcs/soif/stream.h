// SPDX-License-Identifier: MIT
/// The table of streams, shared by parser and printer.
#ifndef LIBCS_SOIF_STREAM_H
#define LIBCS_SOIF_STREAM_H

#include <iterator>

#include <libcs/soif.h>

namespace rdm::soif {

/// activate reserves the first free slot and returns its index. If no slot is free, it aborts.
int activate() noexcept;

/// deactivate clears a slot and thereby frees it. An index outside the table is ignored.
void deactivate(int stream) noexcept;

/// slot returns a stream's slot, or null for an index outside the table.
inline soif_stream *slot(int stream) noexcept {
  return stream >= 0 && stream < static_cast<int>(std::size(_soif_state)) ? &_soif_state[stream] : nullptr;
}

}  // namespace rdm::soif

#endif
