// SPDX-License-Identifier: MIT
/// Compresses the body of an answer.
#ifndef HOSTS_RDMD_TRANSFORM_GZIP_H
#define HOSTS_RDMD_TRANSFORM_GZIP_H

#include <optional>
#include <vector>

#include "hosts/common/output_queue.h"

namespace rdm::rdmd {

/// gzip returns the pieces compressed by gzip at level 1, in memory or in an unlinked file as OutputQueue keeps them.
/// Returns std::nullopt if that is not smaller, if a file cannot be read or is too short, or if memory or room on the
/// disk is lacking.
std::optional<std::vector<hosts::Piece>> gzip(const std::vector<hosts::Piece> &pieces);

}  // namespace rdm::rdmd

#endif
