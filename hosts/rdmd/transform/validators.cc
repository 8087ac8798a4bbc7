// SPDX-License-Identifier: MIT
#include "hosts/rdmd/transform/validators.h"

#include <sys/stat.h>

#include <array>
#include <cstdio>

#include "hosts/common/http_date.h"
#include "qxapi/words.h"

namespace rdm::rdmd {
namespace {

constexpr std::string_view tag_blanks = " \t";
/// A change within the granularity of file times, or of Last-Modified, could leave the time as it was.
constexpr std::time_t settling_time = 2;

bool is_whole_file(const hosts::Piece &piece, const struct stat &status) {
  return S_ISREG(status.st_mode) && status.st_nlink > 0 && piece.offset == 0 && piece.length == status.st_size;
}

std::string identity_of(const struct stat &status) {
  std::array<char, 128> text{};
  std::snprintf(text.data(), text.size(), "%jx-%jx-%jx-%jx.%lx", static_cast<std::uintmax_t>(status.st_dev),
                static_cast<std::uintmax_t>(status.st_ino), static_cast<std::uintmax_t>(status.st_size),
                static_cast<std::uintmax_t>(status.st_mtim.tv_sec), static_cast<unsigned long>(status.st_mtim.tv_nsec));
  return text.data();
}

/// take_tag removes the next entity tag from a list, with its comma, and returns it without "W/". Returns an empty text
/// at the end of the list or at a malformed member.
std::string_view take_tag(std::string_view &list) {
  list.remove_prefix(std::min(list.find_first_not_of(" \t,"), list.size()));
  if (list.starts_with("W/")) list.remove_prefix(2);
  const std::size_t end = list.starts_with('"') ? list.find('"', 1) : std::string_view::npos;
  if (end == std::string_view::npos) return {};
  const std::string_view tag = list.substr(0, end + 1);
  list.remove_prefix(tag.size());
  list.remove_prefix(std::min(list.find_first_not_of(tag_blanks), list.size()));
  return list.empty() || list.front() == ',' ? tag : std::string_view();
}

}  // namespace

std::optional<Validators> validators_of(const std::vector<hosts::Piece> &pieces, std::time_t now) {
  struct stat status;
  if (pieces.size() != 1 || !pieces[0].file || ::fstat(pieces[0].file->get(), &status) != 0) return std::nullopt;
  if (!is_whole_file(pieces[0], status) || status.st_mtim.tv_sec > now - settling_time) return std::nullopt;
  const std::string identity = identity_of(status);
  return Validators{'"' + identity + '"', '"' + identity + "-gzip\"", status.st_mtim.tv_sec};
}

bool lists_tag(std::string_view if_none_match, std::string_view tag) {
  if (trim(if_none_match, tag_blanks) == "*") return true;
  for (std::string_view next; !(next = take_tag(if_none_match)).empty();)
    if (next == tag) return true;
  return false;
}

bool is_unmodified_since(std::string_view if_modified_since, std::time_t modified) {
  const std::optional<std::time_t> since = hosts::parse_http_date(if_modified_since);
  return since && modified <= *since;
}

}  // namespace rdm::rdmd
