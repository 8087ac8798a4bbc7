// SPDX-License-Identifier: MIT
/// Random operations on CSIO buffers, with failures, compared with a model that keeps memory and file as strings.
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libcs/adt.h>

#include "libcs/guard.h"
#include "support/diagnostics.h"
#include "support/environment.h"
#include "support/memory_host.h"
#include "support/model.h"

using namespace rdm;

namespace {

using support::same;
using support::same_bytes;

constexpr size_t block_size = 4096;

enum class Kind { append, flush, finish, rewind, copy, convert, duplicate, release, increase, reset, own_file };

/// The failure during an operation.
enum class Fault { none, first_allocation, second_allocation, write, read, open, directory };

struct Operation {
  Kind kind = Kind::flush;
  int32_t count = 0;  // bytes to append, copy or make room for
  Fault fault = Fault::none;
};

[[maybe_unused]] void showValue(const Operation &operation, std::ostream &out) {
  static const char *const names[] = {"append",    "flush",   "finish",   "rewind", "copy",    "convert",
                                      "duplicate", "release", "increase", "reset",  "own_file"};
  static const char *const faults[] = {"",
                                       " without its first allocation",
                                       " without its second allocation",
                                       " while writes fail",
                                       " while reads fail",
                                       " while files cannot be opened",
                                       " without a directory"};
  const bool has_count =
      operation.kind == Kind::append || operation.kind == Kind::copy || operation.kind == Kind::increase;
  out << names[static_cast<size_t>(operation.kind)];
  if (has_count) out << '(' << operation.count << ')';
  out << faults[static_cast<size_t>(operation.fault)];
}

/// The owner's settings of a new buffer.
struct Settings {
  uint32_t ceiling = 0;
  uint32_t increment = block_size;
};

[[maybe_unused]] void showValue(const Settings &settings, std::ostream &out) {
  out << "max_memory " << settings.ceiling << ", increment " << settings.increment;
}

/// Sizes around those of the write-behind block, the increment and the usual limit, and any others.
rc::Gen<int32_t> sizes() {
  return rc::gen::weightedOneOf<int32_t>({{4, rc::gen::inRange(-1, 60)},
                                          {3, rc::gen::inRange(4090, 4100)},
                                          {1, rc::gen::inRange(8186, 8196)},
                                          {2, rc::gen::inRange(0, 9000)},
                                          {1, rc::gen::inRange(0, 70000)}});
}

rc::Gen<Operation> operations() {
  const auto kinds = rc::gen::weightedElement<Kind>({{12, Kind::append},
                                                     {2, Kind::flush},
                                                     {1, Kind::finish},
                                                     {3, Kind::rewind},
                                                     {8, Kind::copy},
                                                     {1, Kind::convert},
                                                     {1, Kind::duplicate},
                                                     {2, Kind::release},
                                                     {1, Kind::increase},
                                                     {2, Kind::reset},
                                                     {1, Kind::own_file}});
  const auto faults = rc::gen::weightedElement<Fault>({{40, Fault::none},
                                                       {2, Fault::first_allocation},
                                                       {1, Fault::second_allocation},
                                                       {1, Fault::write},
                                                       {1, Fault::read},
                                                       {1, Fault::open},
                                                       {1, Fault::directory}});
  return rc::gen::build<Operation>(rc::gen::set(&Operation::kind, kinds), rc::gen::set(&Operation::count, sizes()),
                                   rc::gen::set(&Operation::fault, faults));
}

rc::Gen<Settings> settings() {
  return rc::gen::build<Settings>(
      rc::gen::set(&Settings::ceiling, rc::gen::element<uint32_t>(0, 32768, 1, 4095, 4096, 8192, 8193, 20000)),
      rc::gen::set(&Settings::increment, rc::gen::element<uint32_t>(4096, 4096, 4096, 0, 1, 100, 10000)));
}

/// bytes_from returns bytes that differ from their neighbours, so that misplaced bytes are noticed.
std::string bytes_from(size_t offset, int32_t count) {
  std::string bytes(static_cast<size_t>(std::max(count, 0)), '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>((offset + i) * 7 % 251);
  return bytes;
}

/// The expected buffer: its memory, its file and its write-behind block as strings.
class Model {
 public:
  static constexpr const char *temporary = "temporary", *own = "own";

  explicit Model(const Settings &settings) : ceiling(settings.ceiling), increment(settings.increment) {}

  void begin(Fault fault) {
    fault_ = fault;
    allocations_ = 0;
  }

  int append(const std::string &bytes) {
    if (finished) return warn("WARNING: CSIO Buffer was already closed to writing?\n");
    if (bytes.empty()) return 0;
    if (in_memory() && capacity < length + bytes.size() + 1)
      increase(static_cast<uint32_t>(length + bytes.size() + 1 - capacity));
    bool stored = false;
    if (in_memory()) {
      // If memory failed, the bytes are lost; the length counts them all the same.
      stored = has_block;
      if (has_block) memory += bytes;
    } else {
      if (!open_to_append()) return 0;
      stored = store(bytes);
    }
    length += bytes.size();
    return stored ? static_cast<int>(bytes.size()) : 0;
  }

  int flush() {
    if (finished) return warn("WARNING: CSIO Buffer was already closed to writing?\n");
    write_out();
    return 0;
  }

  void increase(uint32_t need) {
    if (!in_memory()) return;
    capacity += std::max<size_t>(need, increment);
    // A buffer that was duplicated stays in memory, whatever its limit.
    if (ceiling != 0 && ceiling < capacity && !in_file())
      convert();
    else
      allocate_block();
  }

  int convert() {
    if (!in_memory() || in_file()) return 0;
    const bool was_finished = finished;
    copy_to_file();
    drop_block();
    write_out();
    finished = was_finished;
    return 0;
  }

  int duplicate() {
    if (!in_memory() || in_file()) return static_cast<int>(flags);
    const size_t whole = length;
    copy_to_file();
    write_out();
    flags = CSIO_MEMORY | CSIO_FILE;
    length = whole;
    finished = true;
    return 0;
  }

  void finish() {
    if (finished) return;
    write_out();
    release();
    finished = true;
  }

  void release() {
    if (in_file()) is_open = false;
  }

  void rewind() {
    if (!finished) write_out();
    position = 0;
  }

  /// copy returns the count and the bytes.
  std::pair<int, std::string> copy(int32_t n) {
    if (n <= 0 || position >= length) return {0, ""};
    const size_t count = std::min(length - position, static_cast<size_t>(n));
    std::string bytes;
    if (in_memory()) {
      if (!has_block) return {0, ""};
      bytes = memory.substr(position, count);
    } else {
      if (!read(count, bytes)) return {-1, ""};
    }
    position += bytes.size();
    return {static_cast<int>(bytes.size()), bytes};
  }

  void reset() {
    if (in_memory()) drop_block();
    if (in_file()) {
      if (removes) files.erase(file);
      file.clear();
      is_open = removes = has_wait_block = false;
      waiting.clear();
    }
    length = position = 0;
    finished = false;
  }

  bool in_memory() const { return (flags & CSIO_MEMORY) != 0; }
  bool in_file() const { return (flags & CSIO_FILE) != 0; }
  /// blocks returns the number of host blocks of the buffer, including its record.
  long blocks() const { return 1 + (has_block ? 1 : 0) + (file.empty() ? 0 : 1) + (has_wait_block ? 1 : 0); }

  const uint32_t ceiling, increment;
  uint32_t flags = CSIO_MEMORY;
  size_t length = 0, position = 0, capacity = 0;
  bool finished = false, is_open = false, removes = false;
  bool has_block = false, has_wait_block = false;
  std::string memory, waiting;
  std::string file;  // which of the files; empty without one
  std::map<std::string, std::string> files;
  std::string log;  // with temporary names left out

 private:
  int warn(const char *text) {
    log += text;
    return 0;
  }
  bool allocate() {
    ++allocations_;
    return !(fault_ == Fault::first_allocation && allocations_ == 1) &&
           !(fault_ == Fault::second_allocation && allocations_ == 2);
  }
  void drop_block() {
    has_block = false;
    memory.clear();
    capacity = 0;
  }
  void allocate_block() {
    if (capacity == 0) return;
    if (!allocate()) {
      has_block = false;
      memory.clear();
    } else if (!has_block) {
      has_block = true;
      memory.assign(length, '\0');
    }
  }
  void copy_to_file() {
    length = 0;
    finished = false;
    flags = CSIO_FILE;
    append(std::string(memory));
  }
  bool make_name() {
    if (fault_ == Fault::directory) log += "ERROR: Cannot find temporary filename?\n";
    if (fault_ == Fault::directory || !allocate()) {
      log += "ERROR: csio_append: Cannot set temporary file?\n";
      return false;
    }
    file = temporary;
    removes = true;
    return true;
  }
  bool open_to_append() {
    if (file.empty() && !make_name()) return false;
    if (is_open) return true;
    if (fault_ == Fault::open) {
      log += "ERROR: csio_append: " + file + ": Too many open files\n";
      return false;
    }
    if (length == 0) files[file].clear();
    is_open = true;
    return true;
  }
  bool write(const std::string &bytes) {
    if (fault_ != Fault::write) files[file] += bytes;
    return fault_ != Fault::write;
  }
  bool store(const std::string &bytes) {
    if (bytes.size() >= block_size - waiting.size()) write_out();
    if (bytes.size() >= block_size) return write(bytes);
    if (!has_wait_block && !allocate()) return false;
    has_wait_block = true;
    waiting += bytes;
    return true;
  }
  void write_out() {
    if (is_open && !waiting.empty()) write(waiting);
    waiting.clear();
  }
  bool read(size_t count, std::string &bytes) {
    if (!finished && is_open) write_out();
    const bool opens = !finished || !is_open;
    if (opens && fault_ == Fault::open) return false;
    if (finished) is_open = true;
    if (fault_ == Fault::read) return false;
    const std::string &whole = files[file];
    bytes = whole.substr(std::min(position, whole.size()), count);
    return true;
  }

  Fault fault_ = Fault::none;
  long allocations_ = 0;
};

bool fail_writes = false, fail_reads = false, fail_opens = false, fail_directory = false;

int failing_write(host_fd fd, const void *bytes, int32_t n) {
  return fail_writes ? 0 : qxapi_posix_host()->write(fd, bytes, n);
}
int32_t failing_read(host_fd fd, void *bytes, int32_t n) {
  return fail_reads ? -1 : qxapi_posix_host()->read(fd, bytes, n);
}
template <auto open>
host_fd failing_open(const char *path) {
  errno = EMFILE;
  return fail_opens ? -1 : (qxapi_posix_host()->*open)(path);
}
int failing_stat(const char *path, struct stat *status) {
  return fail_directory ? -1 : qxapi_posix_host()->stat(path, status);
}

/// One buffer and its model.
class Case {
 public:
  explicit Case(const Settings &settings) : model_(settings), io_(make_csio(settings.ceiling)) {
    io_->increment = settings.increment;
  }

  void apply(const Operation &operation) {
    model_.begin(operation.fault);
    set_faults(operation.fault);
    perform(operation);
    set_faults(Fault::none);
    compare();
  }

  /// end compares the log and releases the buffer.
  void end() {
    std::string written = log_.text();
    const std::string temporary = directory_.path("csio");
    for (size_t at = 0; (at = written.find(temporary)) != std::string::npos;)
      written.replace(at, temporary.size() + 32, Model::temporary);
    for (size_t at = 0; (at = written.find(directory_.path(Model::own))) != std::string::npos;)
      written.replace(at, directory_.path(Model::own).size(), Model::own);
    same("log", written, model_.log);
    io_.reset();
    model_.reset();
    same("blocks left", support::host_record().live_blocks, blocks_before_);
    compare_files();
  }

 private:
  void set_faults(Fault fault) {
    support::HostRecord &host = support::host_record();
    host.fail_allocation = fault == Fault::first_allocation    ? host.allocations + 1
                           : fault == Fault::second_allocation ? host.allocations + 2
                                                               : 0;
    fail_writes = fault == Fault::write;
    fail_reads = fault == Fault::read;
    fail_opens = fault == Fault::open;
    fail_directory = fault == Fault::directory;
  }

  void perform(const Operation &operation) {
    switch (operation.kind) {
      case Kind::append:
        append(operation.count);
        break;
      case Kind::flush:
        same("flush", csio_append(io_.get(), nullptr, operation.count), model_.flush());
        break;
      case Kind::finish:
        same("finish", csio_finish(io_.get()), 0);
        model_.finish();
        break;
      case Kind::rewind:
        csio_rewind(io_.get());
        model_.rewind();
        break;
      case Kind::copy:
        copy(operation.count);
        break;
      case Kind::convert:
        same("convert", csio_convert2file(io_.get()), model_.convert());
        break;
      case Kind::duplicate:
        same("duplicate", csio_dup2file(io_.get()), model_.duplicate());
        break;
      case Kind::release:
        same("release", csio_releasefd(io_.get()), 0);
        model_.release();
        break;
      case Kind::increase:
        csio_increase(io_.get(), static_cast<uint32_t>(std::max(operation.count, 0)));
        model_.increase(static_cast<uint32_t>(std::max(operation.count, 0)));
        break;
      case Kind::reset:
        csio_reset(io_.get());
        model_.reset();
        break;
      case Kind::own_file:
        set_own_file();
    }
  }

  void append(int32_t count) {
    const std::string bytes = bytes_from(offered_, count);
    offered_ += bytes.size();
    // Null bytes mean a flush; data() of a string is never null.
    same("append", csio_append(io_.get(), bytes.data(), count), model_.append(bytes));
  }

  void copy(int32_t n) {
    std::string bytes(static_cast<size_t>(std::max(n, 0)), '?');
    const int32_t count = csio_copy(io_.get(), bytes.data(), n);
    const auto [expected_count, expected] = model_.copy(n);
    same("copy", count, expected_count);
    same_bytes("bytes copied", bytes.substr(0, expected.size()), expected);
    same("bytes behind those copied", bytes.find_first_not_of('?', expected.size()), std::string::npos);
  }

  /// set_own_file sets a file name on a buffer with file backing that has none.
  void set_own_file() {
    if (io_->flags != CSIO_FILE || io_->filename != nullptr) return;
    set_faults(Fault::none);
    io_->filename = host_strdup(directory_.path(Model::own).c_str());
    model_.file = Model::own;
  }

  void compare() {
    same("flags", io_->flags, model_.flags);
    same("length", io_->length, model_.length);
    same("position", io_->position, model_.position);
    same("capacity", io_->capacity, model_.capacity);
    same("max_memory", io_->max_memory, model_.ceiling);
    same("increment", io_->increment, model_.increment);
    same("finished", io_->finished, static_cast<int32_t>(model_.finished));
    same("is there a block", io_->data != nullptr, model_.has_block);
    same("is there a name", io_->filename != nullptr, !model_.file.empty());
    same("is the file open", io_->fd != -1, model_.is_open);
    same("remove_file", io_->remove_file, static_cast<int32_t>(model_.removes));
    same("is there a write-behind block", io_->wbuf != nullptr, model_.has_wait_block);
    same("bytes waiting", io_->wbuf_len, static_cast<int32_t>(model_.waiting.size()));
    same("blocks", support::host_record().live_blocks - blocks_before_, model_.blocks());
    compare_memory();
    compare_files();
  }

  void compare_memory() {
    if (model_.has_block) {
      same_bytes("memory", std::string(reinterpret_cast<const char *>(io_->data), io_->length), model_.memory);
      if (io_->length > 0) same("byte behind the memory's", io_->data[io_->length], 0);
    }
    if (model_.has_wait_block)
      same_bytes("bytes waiting", std::string(reinterpret_cast<const char *>(io_->wbuf), model_.waiting.size()),
                 model_.waiting);
  }

  void compare_files() {
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator(directory_.path())) {
      const std::string name = entry.path().filename() == Model::own ? Model::own : Model::temporary;
      same("is there a file", model_.files.contains(name), true);
      same_bytes("file", support::read_file(entry.path()), model_.files[name]);
      ++count;
    }
    same("files", count, model_.files.size());
  }

  support::Diagnostics log_;
  support::TemporaryDirectory directory_;
  std::string directory_path_ = directory_.path();
  support::Environment environment_{"TMPDIR", directory_path_.c_str()};
  long blocks_before_ = support::host_record().live_blocks;
  size_t offered_ = 0;
  Model model_;
  CsioPtr io_;
};

class CsioModel : public support::HostTest {
 protected:
  CsioModel() {
    qxapi_host table = support::memory_host();
    table.write = failing_write;
    table.read = failing_read;
    table.open_write = failing_open<&qxapi_host::open_write>;
    table.open_read = failing_open<&qxapi_host::open_read>;
    table.open_append = failing_open<&qxapi_host::open_append>;
    table.stat = failing_stat;
    qxapi_bind(&table);
  }
};

TEST_F(CsioModel, AnyOrderOfOperations) {
  support::check_model(300, [] {
    const auto given = *settings().as("settings");
    const auto list = *rc::gen::container<std::vector<Operation>>(operations()).as("operations");
    Case test(given);
    for (const Operation &operation : list) test.apply(operation);
    test.end();
  });
}

}  // namespace
