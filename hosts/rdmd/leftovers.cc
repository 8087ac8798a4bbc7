// SPDX-License-Identifier: MIT
#include "hosts/rdmd/leftovers.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>

#include "qxapi/guard.h"
#include "qxapi/hex.h"
#include "qxapi/temporary_owner.h"

namespace rdm::rdmd {
namespace {

using Directory = std::unique_ptr<DIR, Deleter<::closedir>>;

/// is_local returns true if the file system is one that only processes of this machine write to.
bool is_local(int directory) {
  constexpr std::uint32_t local[] = {
      0xEF53,      // ext2, ext3, ext4
      0x58465342,  // XFS
      0x9123683E,  // Btrfs
      0xF2F52010,  // F2FS
      0x2FC12FC1,  // ZFS
      0x01021994,  // tmpfs
      0x794C7630,  // overlayfs
  };
  struct statfs status;
  if (::fstatfs(directory, &status) != 0) return false;
  return std::find(std::begin(local), std::end(local), static_cast<std::uint32_t>(status.f_type)) != std::end(local);
}

/// owner_in returns the owner token in the name of a temporary file, or std::nullopt for any other name.
std::optional<std::uint64_t> owner_in(std::string_view name) {
  constexpr std::string_view prefix = temporary_owner::prefix;
  constexpr auto digits = static_cast<std::size_t>(temporary_owner::digits);
  if (!name.starts_with(prefix) || name.size() != prefix.size() + 2 * digits) return std::nullopt;
  name.remove_prefix(prefix.size());
  if (name.find_first_not_of(hex::digits) != std::string_view::npos) return std::nullopt;
  std::uint64_t token = 0;
  std::from_chars(name.data(), name.data() + digits, token, 16);
  return token == temporary_owner::token_of(token << 1) ? std::optional(token) : std::nullopt;
}

bool is_own_file(int directory, const char *name) {
  struct stat status;
  return ::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == ::geteuid();
}

}  // namespace

std::size_t remove_leftovers(const std::string &path) {
  const Directory directory(::opendir(path.c_str()));
  if (!directory || !is_local(::dirfd(directory.get()))) return 0;
  const int fd = ::dirfd(directory.get());
  std::size_t removed = 0;
  while (const dirent *entry = ::readdir(directory.get())) {
    const std::optional<std::uint64_t> owner = owner_in(entry->d_name);
    if (owner && !temporary_owner::is_held(fd, *owner) && is_own_file(fd, entry->d_name))
      removed += ::unlinkat(fd, entry->d_name, 0) == 0 ? 1 : 0;
  }
  return removed;
}

}  // namespace rdm::rdmd
