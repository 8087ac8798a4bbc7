// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "dba/dba.h"
#include "dba/reader.h"
#include "hashdb/format.h"
#include "qxapi/fatal.h"

using namespace rdm;

int all_databases_locked_closed = 0;

namespace {

constexpr unsigned access_method_flags = 0xE0000000u;
constexpr unsigned open_flags = O_RDWR | O_CREAT | O_TRUNC | O_EXCL;

bool is_allowed(const char *file, unsigned flags, int type) {
  return (all_databases_locked_closed == 0 || file == nullptr) && (flags & ~(open_flags | access_method_flags)) == 0 &&
         type == DB_HASH;
}

/// The beginning of the library's table, to which its handles point. The library's close does not release the two
/// scratch blocks, which it allocates for records longer than a page.
struct LibraryTable {
  unsigned char header[hashdb::header_size];
  int32_t segments;
  int32_t extra_segments;
  hashdb::Hash hash;
  int32_t flags;
  int32_t fd;
  void *value_scratch;
  void *key_scratch;
};

/// The library's close, the same for every handle. Each open stores it, on any thread.
std::atomic<int (*)(DB *)> library_close;

int close_library(DB *db) {
  const auto *table = static_cast<const LibraryTable *>(db->internal);
  void *const scratch[] = {table->value_scratch, table->key_scratch};
  const int result = library_close.load()(db);
  for (void *block : scratch) std::free(block);
  return result;
}

DB *open_with_library(const char *file, unsigned flags, int mode, const void *parameters) {
  DB *db = dbopen(file, static_cast<int>(flags), mode, DB_HASH, parameters);
  if (db == nullptr) return db;
  const int fd = db->fd(db);
  if (fd != -1) fcntl(fd, F_SETFD, FD_CLOEXEC);
  QX_REQUIRE(static_cast<const LibraryTable *>(db->internal)->fd == fd, "db",
             "the library's table is laid out otherwise");
  library_close = std::exchange(db->close, close_library);
  return db;
}

int refuse_descriptor(const DB *) { return -1; }
int refuse_delete(const DB *, const DBT *, u_int) { return -1; }
int refuse_get(const DB *, const DBT *, DBT *, u_int) { return -1; }
int refuse_put(const DB *, DBT *, const DBT *, u_int) { return -1; }
int refuse_walk(const DB *, DBT *, DBT *, u_int) { return -1; }
int refuse_sync(const DB *, u_int) { return -1; }

}  // namespace

DB *QX_dbopen(const char *file, int flags, int mode, int type, const void *parameters) noexcept {
  const auto bits = static_cast<unsigned>(flags);
  const auto *info = static_cast<const HASHINFO *>(parameters);
  if (!is_allowed(file, bits, type)) {
    errno = EINVAL;
    return nullptr;
  }
  if (file != nullptr && (bits & open_flags) == O_RDONLY) return open_reader(file, info);
  if (file != nullptr && (bits & O_TRUNC) == 0 && !library_may_open(file, info)) return nullptr;
  return open_with_library(file, bits, mode, parameters);
}

void dbSetOrClearDBLock(int allow) noexcept { all_databases_locked_closed = allow != 0 ? 0 : 1; }

void __dbpanic(DB *db) noexcept {
  db->del = refuse_delete;
  db->get = refuse_get;
  db->put = refuse_put;
  db->seq = refuse_walk;
  db->sync = refuse_sync;
  db->fd = refuse_descriptor;
}
