#include "tools/minidba/lock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>

#include "tools/minidba/failure.h"
#include "tools/minidba/snapshot.h"

namespace minidba {
namespace {

namespace fs = std::filesystem;

/// remove_leftovers removes what killed writers have left; what cannot be removed is in nobody's way.
void remove_leftovers(const std::string &database) {
  std::error_code ignored;
  for (const char *map : {"", ".url"}) fs::remove(database + map + std::string(snapshot_suffix), ignored);
  const std::string prefix = fs::path(database).filename().string() + std::string(scratch_mark);
  for (const auto &entry : fs::directory_iterator(folder_of(database), ignored))
    if (entry.path().filename().string().compare(0, prefix.size(), prefix) == 0) fs::remove(entry.path(), ignored);
}

/// open_lock opens a file of another user for reading, since not every file system locks what is open for that only.
file_guard open_lock(const std::string &path) {
  file_guard file = open_file(path, O_RDWR | O_CREAT, 0644);
  return !file && errno == EACCES ? open_file(path, O_RDONLY) : std::move(file);
}

}  // namespace

Lock::Lock(const std::string &database) {
  const std::string path = path_for(database);
  file_ = open_lock(path);
  if (!file_ || uninterrupted([&] { return ::flock(file_.get(), LOCK_EX); }) != 0)
    throw system_failure("cannot lock " + path);
  remove_leftovers(database);
}

}  // namespace minidba
