// SPDX-License-Identifier: MIT
/// Validators of prepared answers, and the conditions of requests that refer to them (RFC 9110, sections 8.8 and 13).
#ifndef HOSTS_RDMD_TRANSFORM_VALIDATORS_H
#define HOSTS_RDMD_TRANSFORM_VALIDATORS_H

#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/common/output_queue.h"

namespace rdm::rdmd {

struct Validators {
  std::string tag;       // the entity tag of the plain body, with its quotes
  std::string gzip_tag;  // the same of the compressed body
  std::time_t modified;
};

/// validators_of returns the validators of a body that is one whole file with a name; the tags are made of its device,
/// inode, size and time. Returns std::nullopt for other bodies, and for a file whose time is less than two seconds
/// before `now`: it may still change without another time.
std::optional<Validators> validators_of(const std::vector<hosts::Piece> &pieces, std::time_t now);

/// lists_tag returns true if an If-None-Match field is "*", or lists a tag that equals `tag` in the weak comparison.
/// What follows a malformed member is ignored.
bool lists_tag(std::string_view if_none_match, std::string_view tag);

/// is_unmodified_since returns true if an If-Modified-Since field is a valid time and `modified` is not after it.
bool is_unmodified_since(std::string_view if_modified_since, std::time_t modified);

}  // namespace rdm::rdmd

#endif
