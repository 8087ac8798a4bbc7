// SPDX-License-Identifier: MIT
/// Pieces of an answer, for tests of those that send them.
#ifndef TESTS_SUPPORT_PIECES_H
#define TESTS_SUPPORT_PIECES_H

#include <cstdint>
#include <string>

#include "hosts/common/output_queue.h"
#include "hosts/common/record_slice.h"

namespace rdm::support {

/// bytes returns a text as a piece, records a slice.
inline hosts::Piece bytes(const std::string &text) {
  return {text, nullptr, 0, static_cast<std::int64_t>(text.size())};
}
inline hosts::Piece records(const host_slice &slice) {
  return {"", nullptr, 0, slice.length, hosts::RecordSlice::of(slice)};
}

}  // namespace rdm::support

#endif
