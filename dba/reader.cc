// SPDX-License-Identifier: MIT
#include "dba/reader.h"

#include <cerrno>
#include <new>

#include "hashdb/cursor.h"

namespace rdm {

using hashdb::Cursor;

namespace {

std::string_view text_of(const DBT &item) { return {static_cast<const char *>(item.data), item.size}; }

DBT item_of(std::string_view text) { return {const_cast<char *>(text.data()), text.size()}; }

hashdb::Hash hash_of(const HASHINFO *parameters) {
  return parameters != nullptr && parameters->hash != nullptr ? parameters->hash : hashdb::default_hash;
}

/// Reader is the object to which a handle's `internal` points. Reads by key and the walk over all records use separate
/// cursors.
class Reader {
 public:
  Reader(HostFileGuard file, const hashdb::Source &source, hashdb::Hash hash) noexcept
      : file_(std::move(file)), source_(source), hash_(hash) {}

  int get(std::string_view key, DBT *value) noexcept;
  int first(DBT *key, DBT *value) noexcept;
  int next(DBT *key, DBT *value) noexcept;
  host_fd fd() const noexcept { return file_.get(); }

 private:
  bool start_bucket() noexcept;

  HostFileGuard file_;
  hashdb::Source source_;
  hashdb::Hash hash_;
  Cursor by_key_{source_};
  Cursor walk_{source_};
  uint32_t next_bucket_ = 0;
  bool in_bucket_ = false;
};

int Reader::get(std::string_view key, DBT *value) noexcept {
  const Cursor::Result result = by_key_.find_newest(bucket_of(source_.header, hash_(key.data(), key.size())), key);
  if (result != Cursor::record) return result == Cursor::end ? RET_SPECIAL : RET_ERROR;
  *value = item_of(by_key_.value());
  return RET_SUCCESS;
}

int Reader::first(DBT *key, DBT *value) noexcept {
  next_bucket_ = 0;
  in_bucket_ = false;
  return next(key, value);
}

/// start_bucket moves the walk to the next bucket. Buckets with pages past the end of the file are empty. Returns false
/// after the last bucket.
bool Reader::start_bucket() noexcept {
  const auto page = static_cast<int64_t>(bucket_page(source_.header, next_bucket_));
  in_bucket_ = next_bucket_ <= source_.header.max_bucket && page << source_.header.page_shift < source_.size;
  if (in_bucket_) walk_.start(next_bucket_++);
  return in_bucket_;
}

int Reader::next(DBT *key, DBT *value) noexcept {
  if (!in_bucket_ && !start_bucket()) return RET_SPECIAL;
  Cursor::Result result = walk_.next();
  while (result == Cursor::end && start_bucket()) result = walk_.next();
  if (result == Cursor::end) return RET_SPECIAL;
  if (result == Cursor::damaged) {
    in_bucket_ = false;
    return RET_ERROR;
  }
  *key = item_of(walk_.key());
  *value = item_of(walk_.value());
  return RET_SUCCESS;
}

Reader &reader_of(const DB *db) { return *static_cast<Reader *>(db->internal); }

int refused(int reason) {
  errno = reason;
  return RET_ERROR;
}

int get_record(const DB *db, const DBT *key, DBT *value, u_int flags) {
  return flags != 0 ? refused(EINVAL) : reader_of(db).get(text_of(*key), value);
}

int walk_records(const DB *db, DBT *key, DBT *value, u_int flags) {
  if (flags != R_FIRST && flags != R_NEXT) return refused(EINVAL);
  return flags == R_FIRST ? reader_of(db).first(key, value) : reader_of(db).next(key, value);
}

int put_record(const DB *, DBT *, const DBT *, u_int) { return refused(EPERM); }
int delete_record(const DB *, const DBT *, u_int) { return refused(EPERM); }
int synchronise(const DB *, u_int) { return RET_SUCCESS; }
int descriptor(const DB *db) { return reader_of(db).fd(); }

int close_reader(DB *db) {
  std::destroy_at(&reader_of(db));
  host_free(db->internal);
  host_free(db);
  return RET_SUCCESS;
}

/// open_source opens a file and reads its header. Returns no file, with errno EINVAL, if the header is not sound.
HostFileGuard open_source(const char *path, hashdb::Hash hash, hashdb::Source &source) {
  struct stat status;
  if (host_stat(path, &status) != 0) return HostFileGuard();
  if (S_ISREG(status.st_mode)) {
    HostFileGuard file(host_open_read(path));
    if (!file) return file;
    unsigned char bytes[hashdb::header_size];
    const bool whole = host_read(file.get(), bytes, sizeof bytes) == sizeof bytes;
    if (whole) source = {file.get(), host_seek(file.get(), 0, SEEK_END), hashdb::decode(bytes)};
    if (whole && is_sound(source.header, hash, source.size)) return file;
  }
  errno = EINVAL;
  return HostFileGuard();
}

}  // namespace

DB *open_reader(const char *path, const HASHINFO *parameters) noexcept {
  hashdb::Source source;
  HostFileGuard file = open_source(path, hash_of(parameters), source);
  if (!file) return nullptr;
  HostPtr<DB> db = host_new<DB>();
  HostPtr<void> memory(host_alloc(sizeof(Reader)));
  if (!db || !memory) {
    errno = ENOMEM;
    return nullptr;
  }
  *db = {DB_HASH,      close_reader, delete_record, get_record, put_record,
         walk_records, synchronise,  memory.get(),  descriptor};
  new (memory.release()) Reader(std::move(file), source, hash_of(parameters));
  return db.release();
}

bool library_may_open(const char *path, const HASHINFO *parameters) noexcept {
  hashdb::Source source;
  return open_source(path, hash_of(parameters), source) || errno != EINVAL;
}

}  // namespace rdm
