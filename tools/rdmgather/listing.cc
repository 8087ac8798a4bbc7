// SPDX-License-Identifier: MIT
#include "tools/rdmgather/listing.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>

#include "catalog/os/error.h"
#include "qxapi/guard.h"

namespace rdm::gather {
namespace {

/// nanoseconds_of is modulo 2^64: a file may have any number of seconds.
int64_t nanoseconds_of(const timespec &time) {
  return static_cast<int64_t>(static_cast<uint64_t>(time.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(time.tv_nsec));
}

std::string words_for(int error) { return std::generic_category().message(error); }

/// real_path_of returns a path without symbolic links, or std::nullopt with errno set.
std::optional<std::string> real_path_of(const std::string &path) {
  const std::unique_ptr<char, Deleter<std::free>> real(::realpath(path.c_str(), nullptr));
  return real ? std::optional<std::string>(real.get()) : std::nullopt;
}

std::string joined(const std::string &directory, const std::string &name) {
  return directory.empty() || directory.ends_with('/') ? directory + name : directory + "/" + name;
}

class DirectoryWalk {
 public:
  DirectoryWalk(std::string root, const std::vector<FileIdentity> &excluded) : excluded_(excluded) {
    listing_.root = std::move(root);
  }

  Listing walk() {
    pending_.push_back({"", listing_.root, false});
    while (!pending_.empty()) {
      const Directory next = std::move(pending_.back());
      pending_.pop_back();
      enter(next);
    }
    std::sort(listing_.documents.begin(), listing_.documents.end(),
              [](const Entry &a, const Entry &b) { return a.path < b.path; });
    return std::move(listing_);
  }

 private:
  struct Directory {
    std::string path;  // as in an Entry
    std::string file;
    bool is_linked;  // a symbolic link to a directory is on the path
  };

  void enter(const Directory &directory) {
    std::error_code error;
    std::filesystem::directory_iterator entries(directory.file, error);
    if (error && directory.path.empty())
      throw catalog::Failure("cannot read " + directory.file + ": " + error.message());
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
      const std::string name = entries->path().filename().string();
      if (!name.starts_with('.')) look_at(directory, name);
    }
    if (error) add_fault(directory.path, error.value());
  }

  void look_at(const Directory &directory, const std::string &name) {
    const std::string path = joined(directory.path, name), file = joined(directory.file, name);
    struct stat status;
    if (::lstat(file.c_str(), &status) != 0) return add_fault(path, errno);
    if (S_ISLNK(status.st_mode))
      follow(directory, path, file);
    else
      take({path, file, directory.is_linked}, status);
  }

  void follow(const Directory &directory, const std::string &path, const std::string &link) {
    const auto real = real_path_of(link);
    struct stat status;
    if (!real || ::lstat(real->c_str(), &status) != 0) {
      const bool leads_nowhere = errno == ENOENT || errno == ENOTDIR || errno == ELOOP;
      return leads_nowhere ? void() : add_fault(path, errno);
    }
    if (!is_within(listing_.root, *real)) return;
    const bool contains_link = *real == directory.file || is_within(*real, directory.file);
    if (S_ISDIR(status.st_mode) && (directory.is_linked || contains_link)) return;
    take({path, *real, true}, status);
  }

  /// take enters a regular file or a directory, and leaves out special files.
  void take(Directory found, const struct stat &status) {
    if (S_ISDIR(status.st_mode)) return pending_.push_back(std::move(found));
    if (!S_ISREG(status.st_mode)) return;
    if (std::find(excluded_.begin(), excluded_.end(), FileIdentity(status.st_dev, status.st_ino)) != excluded_.end())
      return;
    listing_.documents.push_back({std::move(found.path), std::move(found.file), print_of(status)});
  }

  void add_fault(const std::string &path, int error) { listing_.faults.push_back({path, words_for(error)}); }

  const std::vector<FileIdentity> &excluded_;
  Listing listing_;
  std::vector<Directory> pending_;
};

}  // namespace

Print print_of(const struct stat &status) {
  return {status.st_size, nanoseconds_of(status.st_mtim), nanoseconds_of(status.st_ctim)};
}

Listing list_documents(const std::string &directory, const std::vector<FileIdentity> &excluded) {
  std::optional<std::string> root = real_path_of(directory);
  if (!root) throw catalog::system_failure("cannot read " + directory);
  return DirectoryWalk(std::move(*root), excluded).walk();
}

bool is_within(std::string_view root, std::string_view file) {
  if (!root.ends_with('/') && !file.substr(std::min(root.size(), file.size())).starts_with('/')) return false;
  return file.starts_with(root);
}

}  // namespace rdm::gather
