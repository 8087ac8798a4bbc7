// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libcs/adt.h>
#include <libcs/log.h>

#include "csio_buffers.h"
#include "qxapi/temporary_owner.h"
#include "support/diagnostics.h"
#include "support/environment.h"
#include "support/memory_host.h"

using namespace rdm;

/// This program runs like a privileged one, for which secure_getenv() returns null. TMPDIR, which a service sets from
/// its configuration, must be used all the same. Regression: /tmp was used.
extern "C" char *secure_getenv(const char *) noexcept { return nullptr; }

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

using support::append;
using support::copy;
using support::pattern;

/// The log lines for a missing temporary name.
constexpr char no_name[] =
    "ERROR: Cannot find temporary filename?\n"
    "ERROR: csio_append: Cannot set temporary file?\n";

constexpr uint32_t memory = 0x01, file = 0x10, both = 0x11;

std::vector<std::string> calls;
bool fail_writes = false;

int recording_write(host_fd fd, const void *bytes, int32_t n) {
  calls.push_back("write " + std::to_string(n));
  return fail_writes ? 0 : qxapi_posix_host()->write(fd, bytes, n);
}
host_fd recording_open_write(const char *path) {
  calls.emplace_back("open_write");
  return qxapi_posix_host()->open_write(path);
}
host_fd recording_open_read(const char *path) {
  calls.emplace_back("open_read");
  return qxapi_posix_host()->open_read(path);
}
host_fd recording_open_append(const char *path) {
  calls.emplace_back("open_append");
  return qxapi_posix_host()->open_append(path);
}
host_fd refusing_open_write(const char *) {
  errno = EMFILE;
  return -1;
}
int failing_stat(const char *, struct stat *) { return -1; }

CsioPtr make_file_buffer() {
  CsioPtr io = make_csio();
  io->flags = file;
  return io;
}

/// CsioFile has a temporary directory of its own and a host that records writes and opened files.
class CsioFile : public support::HostTest {
 protected:
  CsioFile() {
    calls.clear();
    fail_writes = false;
    table.write = recording_write;
    table.open_write = recording_open_write;
    table.open_read = recording_open_read;
    table.open_append = recording_open_append;
    qxapi_bind(&table);
  }
  void TearDown() override {
    EXPECT_THAT(files(), IsEmpty()) << "a temporary file was left behind";
    HostTest::TearDown();
  }

  /// set_failures makes stat() fail, so that there is no temporary name, or open_write() with EMFILE.
  void set_failures(bool no_directory, bool no_file = false) {
    table.stat = no_directory ? failing_stat : qxapi_posix_host()->stat;
    table.open_write = no_file ? refusing_open_write : recording_open_write;
    qxapi_bind(&table);
  }

  std::vector<std::string> files() const {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(directory.path())) names.push_back(entry.path());
    return names;
  }

  support::Diagnostics log;
  support::TemporaryDirectory directory;
  std::string directory_path = directory.path();
  support::Environment environment{"TMPDIR", directory_path.c_str()};
  qxapi_host table = support::memory_host();
};

TEST_F(CsioFile, StreamPastTheCeilingMovesToAFile) {
  const CsioPtr io = make_csio(32768);
  std::string expected;
  for (int piece = 0; piece < 400; ++piece) {
    const std::string bytes = pattern(100 + static_cast<size_t>(piece)).substr(static_cast<size_t>(piece));
    EXPECT_EQ(append(io, bytes), 100);
    expected += bytes;
    // 32700 bytes and the NUL fit 32768; the next piece needs more.
    EXPECT_EQ(io->flags, piece < 327 ? memory : file) << piece;
  }
  EXPECT_EQ(io->length, 40000u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(io->capacity, 0u);
  EXPECT_EQ(copy(io, 50000), expected);
  csio_rewind(io.get());
  EXPECT_EQ(support::read_file(io->filename), expected);
}

TEST_F(CsioFile, CeilingIsComparedWithTheGrownCapacity) {
  const CsioPtr io = make_csio(4095);
  append(io, "x");  // the capacity grows by 4096
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(copy(io, 10), "x");
}

TEST_F(CsioFile, TemporaryFileIsPrivateAndNamedAfterTheBuffer) {
  const CsioPtr io = make_file_buffer();
  append(io, "text");
  EXPECT_THAT(io->filename, MatchesRegex(directory_path + "/csio[0-9a-f]{32}"));
  EXPECT_EQ(io->remove_file, 1);
  struct stat status;
  ASSERT_EQ(::stat(io->filename, &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
  EXPECT_NE(::fcntl(io->fd, F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_THAT(files(), ElementsAre(io->filename));
  EXPECT_THAT(calls, ElementsAre("open_write"));
}

TEST_F(CsioFile, EveryBufferHasAFileOfItsOwn) {
  const CsioPtr first = make_file_buffer(), second = make_file_buffer();
  append(first, "one");
  append(second, "two");
  EXPECT_STRNE(first->filename, second->filename);
  EXPECT_EQ(copy(first, 10), "one");
  EXPECT_EQ(copy(second, 10), "two");
}

TEST_F(CsioFile, SmallAppendsGatherInTheBlock) {
  const CsioPtr io = make_file_buffer();
  EXPECT_EQ(append(io, pattern(4095)), 4095);
  EXPECT_EQ(io->wbuf_len, 4095);
  EXPECT_EQ(io->wbuf[4095], 0xFF);
  EXPECT_EQ(support::read_file(io->filename), "");
  EXPECT_EQ(append(io, "yz"), 2);
  EXPECT_EQ(io->wbuf_len, 2);
  EXPECT_EQ(support::read_file(io->filename), pattern(4095));
  EXPECT_EQ(io->length, 4097u);
  EXPECT_THAT(calls, ElementsAre("open_write", "write 4095"));
}

TEST_F(CsioFile, BytesThatFillTheBlockExactlyWriteItOutFirst) {
  const CsioPtr io = make_file_buffer();
  append(io, pattern(4000));
  append(io, pattern(96));
  EXPECT_EQ(io->wbuf_len, 96);
  EXPECT_THAT(calls, ElementsAre("open_write", "write 4000"));
}

TEST_F(CsioFile, AppendsOfABlockGoStraightToTheFile) {
  const CsioPtr io = make_file_buffer();
  EXPECT_EQ(append(io, pattern(4096)), 4096);
  EXPECT_EQ(io->wbuf, nullptr);
  EXPECT_EQ(append(io, "small"), 5);
  EXPECT_EQ(append(io, pattern(10000)), 10000);
  EXPECT_EQ(io->wbuf_len, 0);
  EXPECT_EQ(support::read_file(io->filename), pattern(4096) + "small" + pattern(10000));
  EXPECT_THAT(calls, ElementsAre("open_write", "write 4096", "write 5", "write 10000"));
}

TEST_F(CsioFile, NullBytesAndRewindWriteTheBlockOut) {
  void (*const flushes[])(csio *) = {[](csio *io) { EXPECT_EQ(csio_append(io, nullptr, 0), 0); }, csio_rewind};
  for (const auto flush : flushes) {
    calls.clear();
    const CsioPtr io = make_file_buffer();
    append(io, "waiting");
    flush(io.get());
    EXPECT_EQ(io->wbuf_len, 0);
    EXPECT_EQ(io->length, 7u);
    EXPECT_EQ(support::read_file(io->filename), "waiting");
    flush(io.get());
    EXPECT_THAT(calls, ElementsAre("open_write", "write 7"));
  }
}

TEST_F(CsioFile, WithoutADirectoryThereIsNoTemporaryName) {
  const CsioPtr io = make_file_buffer();
  set_failures(true);
  for (int attempt = 0; attempt < 2; ++attempt) EXPECT_EQ(append(io, "lost"), 0);
  EXPECT_EQ(log.text(), std::string(no_name) + no_name);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(io->remove_file, 0);
  set_failures(false);
  EXPECT_EQ(append(io, "kept"), 4);
  EXPECT_EQ(copy(io, 10), "kept");
}

TEST_F(CsioFile, DirectoryWithoutRoomForANameIsNoTemporaryName) {
  std::string deep = directory_path;
  while (deep.size() + 201 < 4080) deep += "/" + std::string(200, 'd');
  deep += "/" + std::string(4080 - deep.size() - 1, 'd');
  ASSERT_TRUE(std::filesystem::create_directories(deep));
  {
    const support::Environment too_long("TMPDIR", deep.c_str());
    const CsioPtr io = make_file_buffer();
    EXPECT_EQ(append(io, "lost"), 0);
  }
  EXPECT_EQ(log.text(), no_name);
  std::filesystem::remove_all(directory_path + "/" + std::string(200, 'd'));
}

TEST_F(CsioFile, UnusableTmpdirGivesWayToTheSystemsDirectory) {
  for (const char *value : {"/no/such/directory", static_cast<const char *>(nullptr)}) {
    const support::Environment other("TMPDIR", value);
    const CsioPtr io = make_file_buffer();
    EXPECT_EQ(append(io, "text"), 4);
    EXPECT_THAT(io->filename, MatchesRegex("/tmp/csio[0-9a-f]{32}"));
  }
}

TEST_F(CsioFile, ItsProcessHoldsTheTokenInTheNameOfEachFile) {
  const CsioPtr first = make_file_buffer(), second = make_file_buffer();
  append(first, "one");
  append(second, "two");
  csio_finish(first.get());
  const std::string name = std::filesystem::path(first->filename).filename(), token = name.substr(4, 16);
  EXPECT_EQ(std::filesystem::path(second->filename).filename().string().substr(4, 16), token);
  const HostFileGuard other(::open(directory_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const uint64_t held = std::stoull(token, nullptr, 16);
  EXPECT_TRUE(temporary_owner::is_held(other.get(), held));
  EXPECT_FALSE(temporary_owner::is_held(other.get(), held ^ 1));
}

TEST_F(CsioFile, WithoutATokenTheNameIsShort) {
  // A process keeps only a few directories open; files in others have no token.
  std::vector<std::unique_ptr<support::TemporaryDirectory>> directories;
  std::vector<size_t> sizes;
  for (int i = 0; i < 6; ++i) {
    directories.push_back(std::make_unique<support::TemporaryDirectory>());
    const std::string path = directories.back()->path();
    const support::Environment other("TMPDIR", path.c_str());
    const CsioPtr io = make_file_buffer();
    EXPECT_EQ(append(io, "text"), 4);
    sizes.push_back(std::filesystem::path(io->filename).filename().string().size());
  }
  EXPECT_EQ(sizes.front(), sizeof "csio" - 1 + 32);
  EXPECT_EQ(sizes.back(), sizeof "csio" - 1 + 16);
}

TEST_F(CsioFile, NameThatCannotBeKeptIsReported) {
  const CsioPtr io = make_file_buffer();
  host.fail_allocation = host.allocations + 1;
  EXPECT_EQ(append(io, "lost"), 0);
  EXPECT_EQ(log.text(), "ERROR: csio_append: Cannot set temporary file?\n");
  EXPECT_EQ(io->length, 0u);
}

TEST_F(CsioFile, FileThatCannotBeOpenedIsReported) {
  const CsioPtr io = make_file_buffer();
  const std::string path = directory.path("missing/file");
  io->filename = host_strdup(path.c_str());
  EXPECT_EQ(append(io, "lost"), 0);
  EXPECT_EQ(log.text(), "ERROR: csio_append: " + path + ": No such file or directory\n");
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->remove_file, 0);
}

TEST_F(CsioFile, TemporaryFileThatCannotBeOpenedIsTriedAgain) {
  const CsioPtr io = make_file_buffer();
  set_failures(false, true);
  EXPECT_EQ(append(io, "lost"), 0);
  EXPECT_EQ(log.text(), std::string("ERROR: csio_append: ") + io->filename + ": Too many open files\n");
  set_failures(false);
  EXPECT_EQ(append(io, "kept"), 4);
  EXPECT_EQ(copy(io, 10), "kept");
}

TEST_F(CsioFile, BytesOfAFailedWriteCountInTheLength) {
  const CsioPtr io = make_file_buffer();
  fail_writes = true;
  EXPECT_EQ(append(io, pattern(4096)), 0);
  EXPECT_EQ(io->length, 4096u);
  EXPECT_EQ(append(io, "text"), 4) << "until the block is written";
  EXPECT_EQ(csio_append(io.get(), nullptr, 0), 0);
  EXPECT_EQ(io->wbuf_len, 0);
  EXPECT_EQ(io->length, 4100u);
  EXPECT_EQ(log.text(), "");
}

TEST_F(CsioFile, LengthNeverWraps) {
  const CsioPtr io = make_file_buffer();
  append(io, "1");
  io->length = UINT32_MAX - 5;
  EXPECT_EQ(append(io, "123456"), 0);
  EXPECT_EQ(io->length, UINT32_MAX - 5);
  EXPECT_EQ(log.text(), "ERROR: csio_append: No room for 6 bytes after 4294967290?\n");
  EXPECT_EQ(append(io, "12345"), 5);
  EXPECT_EQ(io->length, UINT32_MAX);
  EXPECT_EQ(append(io, "1"), 0);
}

TEST_F(CsioFile, FinishReleasesTheDescriptorAndKeepsTheFile) {
  const CsioPtr io = make_file_buffer();
  append(io, "text");
  EXPECT_EQ(csio_finish(io.get()), 0);
  EXPECT_EQ(io->fd, -1);
  EXPECT_EQ(support::read_file(io->filename), "text");
  EXPECT_EQ(csio_finish(io.get()), 0);
  EXPECT_EQ(append(io, "more"), 0);
  EXPECT_EQ(log.text(), "WARNING: CSIO Buffer was already closed to writing?\n");
}

TEST_F(CsioFile, FinishedFileIsReopenedForReadingOnce) {
  const CsioPtr io = make_file_buffer();
  append(io, pattern(9000));
  csio_finish(io.get());
  calls.clear();
  EXPECT_EQ(copy(io, 5000), pattern(9000).substr(0, 5000));
  EXPECT_EQ(copy(io, 5000), pattern(9000).substr(5000));
  EXPECT_EQ(copy(io, 5000), "");
  csio_rewind(io.get());
  EXPECT_EQ(copy(io, 10), pattern(10));
  EXPECT_THAT(calls, ElementsAre("open_read"));
}

TEST_F(CsioFile, UnfinishedFileCanBeRead) {
  const CsioPtr io = make_file_buffer();
  append(io, "waiting");
  EXPECT_EQ(copy(io, 4), "wait");
  append(io, " more");
  EXPECT_EQ(copy(io, 100), "ing more");
  append(io, pattern(5000));
  EXPECT_EQ(copy(io, 100), pattern(100));
  EXPECT_EQ(append(io, "end"), 3);
  csio_finish(io.get());
  EXPECT_EQ(support::read_file(io->filename), "waiting more" + pattern(5000) + "end");
}

TEST_F(CsioFile, CopyNeverReadsPastTheEnd) {
  const CsioPtr io = make_file_buffer();
  append(io, "text");
  char untouched = '!';
  for (const uint32_t position : {4u, 5u, UINT32_MAX}) {
    io->position = position;
    EXPECT_EQ(csio_copy(io.get(), &untouched, 10), 0);
  }
  io->position = 0;
  EXPECT_EQ(csio_copy(io.get(), &untouched, -1), 0);
  EXPECT_EQ(untouched, '!');
}

TEST_F(CsioFile, FileThatCannotBeReadAnswersMinusOne) {
  char bytes[10];
  const CsioPtr io = make_file_buffer();
  io->length = 4;
  EXPECT_EQ(csio_copy(io.get(), bytes, 10), -1) << "without a file";
  io->length = 0;
  append(io, "text");
  ::unlink(io->filename);
  EXPECT_EQ(csio_copy(io.get(), bytes, 10), -1) << "unfinished";
  csio_finish(io.get());
  EXPECT_EQ(csio_copy(io.get(), bytes, 10), -1) << "finished";
  EXPECT_EQ(io->position, 0u);
}

TEST_F(CsioFile, FileShorterThanTheLengthReadsAsFarAsItGoes) {
  const CsioPtr io = make_file_buffer();
  append(io, "text");
  csio_finish(io.get());
  io->length = 10;
  EXPECT_EQ(copy(io, 10), "text");
  EXPECT_EQ(io->position, 4u);
  EXPECT_EQ(copy(io, 10), "");
}

/// Regression: csio_releasefd wrote the block, so each release was a system call, and nothing could be dropped.
TEST_F(CsioFile, ReleaseOnlyClosesAndTheNextAppendWritesTheBlock) {
  const CsioPtr io = make_file_buffer();
  append(io, "before ");
  EXPECT_EQ(csio_releasefd(io.get()), 0);
  EXPECT_EQ(io->fd, -1);
  EXPECT_EQ(io->wbuf_len, 7);
  EXPECT_EQ(csio_releasefd(io.get()), 0);
  EXPECT_EQ(support::read_file(io->filename), "");
  EXPECT_EQ(append(io, "after"), 5);
  EXPECT_EQ(copy(io, 20), "before after");
  EXPECT_EQ(io->length, 12u);
  EXPECT_THAT(calls, ElementsAre("open_write", "open_append", "write 12", "open_read"));
}

TEST_F(CsioFile, TheBlockIsWrittenBeforeALargeAppendAfterARelease) {
  const CsioPtr io = make_file_buffer();
  append(io, "before ");
  csio_releasefd(io.get());
  EXPECT_EQ(append(io, pattern(5000)), 5000);
  EXPECT_THAT(calls, ElementsAre("open_write", "open_append", "write 7", "write 5000"));
  EXPECT_EQ(support::read_file(io->filename), "before " + pattern(5000));
}

/// A command that gets the name of the released file may have appended to it.
TEST_F(CsioFile, AppendAfterAReleaseKeepsTheFilesContent) {
  for (const std::string &written : {std::string(), pattern(4096)}) {
    const CsioPtr io = make_file_buffer();
    append(io, written);
    append(io, "waiting ");
    csio_releasefd(io.get());
    support::write_file(io->filename, support::read_file(io->filename) + "a command's ");
    append(io, "more");
    csio_finish(io.get());
    EXPECT_EQ(support::read_file(io->filename), written + "a command's waiting more");
  }
}

TEST_F(CsioFile, FlushAfterAReleaseDropsTheBlock) {
  void (*const flushes[])(csio *) = {[](csio *io) { csio_append(io, nullptr, 0); }, csio_rewind,
                                     [](csio *io) { csio_finish(io); }};
  for (const auto flush : flushes) {
    const CsioPtr io = make_file_buffer();
    append(io, pattern(4096));
    append(io, "dropped");
    csio_releasefd(io.get());
    flush(io.get());
    EXPECT_EQ(io->wbuf_len, 0);
    EXPECT_EQ(io->fd, -1);
    EXPECT_EQ(io->length, 4103u);
    EXPECT_EQ(support::read_file(io->filename), pattern(4096));
    const bool finished = io->finished != 0;
    EXPECT_EQ(append(io, "kept"), finished ? 0 : 4);
    EXPECT_EQ(copy(io, 5000), pattern(4096) + (finished ? "" : "kept"));
  }
}

TEST_F(CsioFile, ReadingAfterAReleaseKeepsTheBlock) {
  const CsioPtr io = make_file_buffer();
  append(io, pattern(4096));
  append(io, "waiting");
  csio_releasefd(io.get());
  EXPECT_EQ(copy(io, 5000), pattern(4096));
  EXPECT_EQ(io->fd, -1);
  EXPECT_EQ(io->wbuf_len, 7);
  append(io, " more");
  EXPECT_EQ(copy(io, 5000), "waiting more");
}

TEST_F(CsioFile, OwnersFileIsReadAndNotRemoved) {
  const std::string path = directory.write("owned", "the owner's bytes");
  {
    const CsioPtr io = make_csio(32768);
    csio_reset(io.get());
    io->flags = file;
    io->filename = host_strdup(path.c_str());
    io->remove_file = 0;
    io->length = 17;
    EXPECT_EQ(copy(io, 4), "the ");
    csio_finish(io.get());
    EXPECT_EQ(copy(io, 100), "owner's bytes");
    csio_reset(io.get());
    EXPECT_EQ(io->filename, nullptr);
  }
  EXPECT_EQ(support::read_file(path), "the owner's bytes");
  EXPECT_THAT(calls, ::testing::Not(::testing::Contains("open_write")));
  ::unlink(path.c_str());
}

TEST_F(CsioFile, OwnersFileIsNotEmptiedByAnAppend) {
  const std::string path = directory.write("owned", "owned");
  {
    const CsioPtr io = make_file_buffer();
    io->filename = host_strdup(path.c_str());
    io->length = 5;
    EXPECT_EQ(append(io, " and more"), 9);
  }
  EXPECT_EQ(support::read_file(path), "owned") << "the block is discarded with the buffer";
  ::unlink(path.c_str());
}

TEST_F(CsioFile, ResetRemovesTheFileAndStaysFileBacked) {
  const CsioPtr io = make_csio(4096);
  append(io, pattern(5000));
  csio_finish(io.get());
  copy(io, 10);
  const std::string first = io->filename;
  csio_reset(io.get());
  EXPECT_FALSE(support::file_exists(first));
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->position, 0u);
  EXPECT_EQ(io->finished, 0);
  EXPECT_EQ(io->filename, nullptr);
  EXPECT_EQ(io->fd, -1);
  EXPECT_EQ(io->wbuf, nullptr);
  EXPECT_EQ(io->wbuf_len, 0);
  EXPECT_EQ(io->remove_file, 0);
  EXPECT_EQ(io->max_memory, 4096u);
  EXPECT_EQ(append(io, "again"), 5);
  EXPECT_NE(io->filename, first);
  csio_reset(io.get());
  EXPECT_EQ(io->wbuf_len, 0) << "the bytes that wait are dropped";
  EXPECT_EQ(append(io, "once more"), 9);
  EXPECT_EQ(copy(io, 20), "once more");
}

TEST_F(CsioFile, ConvertMovesTheBytes) {
  for (const size_t size : {1, 4095, 4096, 20000}) {
    const CsioPtr io = make_csio();
    append(io, pattern(size));
    EXPECT_EQ(csio_convert2file(io.get()), 0);
    EXPECT_EQ(io->flags, file);
    EXPECT_EQ(io->data, nullptr);
    EXPECT_EQ(io->capacity, 0u);
    EXPECT_EQ(io->length, size);
    EXPECT_EQ(io->finished, 0);
    EXPECT_EQ(support::read_file(io->filename), pattern(size));
    append(io, " and more");
    EXPECT_EQ(copy(io, 30000), pattern(size) + " and more");
  }
}

TEST_F(CsioFile, ConvertOfAnEmptyBufferWaitsForBytes) {
  const CsioPtr io = make_csio();
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(io->filename, nullptr);
  append(io, "text");
  EXPECT_EQ(copy(io, 10), "text");
}

TEST_F(CsioFile, ConvertKeepsPositionAndFinish) {
  const CsioPtr io = make_csio();
  append(io, "abcdef");
  copy(io, 2);
  csio_finish(io.get());
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->finished, 1);
  EXPECT_EQ(support::read_file(io->filename), "abcdef");
  EXPECT_EQ(append(io, "more"), 0);
  EXPECT_EQ(copy(io, 10), "cdef");
}

TEST_F(CsioFile, ConvertWithoutATemporaryNameLosesTheBytes) {
  const CsioPtr io = make_csio();
  append(io, "lost");
  set_failures(true);
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(io->filename, nullptr);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(log.text(), no_name);
}

// The name is kept for the next append; it does not mean that the file exists.
TEST_F(CsioFile, ConvertToAFileThatCannotBeOpenedLosesTheBytes) {
  const CsioPtr io = make_csio();
  append(io, "lost");
  set_failures(false, true);
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->length, 0u);
  ASSERT_NE(io->filename, nullptr);
  EXPECT_THAT(files(), IsEmpty());
  set_failures(false);
  EXPECT_EQ(append(io, "kept"), 4);
  EXPECT_EQ(copy(io, 10), "kept");
}

TEST_F(CsioFile, StreamPastTheCeilingWithoutATemporaryNameIsLost) {
  const CsioPtr io = make_csio(8192);
  append(io, pattern(5000));
  set_failures(true);
  EXPECT_EQ(append(io, pattern(5000)), 0);
  EXPECT_EQ(io->flags, file);
  EXPECT_EQ(io->length, 0u);
  EXPECT_EQ(io->data, nullptr);
  EXPECT_EQ(log.text(), std::string(no_name) + no_name) << "for the bytes in memory, then for the new ones";
}

TEST_F(CsioFile, ConvertOfBytesLostToMemoryLeavesAnEmptyFile) {
  const CsioPtr io = make_csio();
  host.fail_allocation = host.allocations + 1;
  append(io, "lost");
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->length, 0u);
  append(io, "kept");
  EXPECT_EQ(copy(io, 10), "kept");
}

TEST_F(CsioFile, DuplicateKeepsTheMemory) {
  for (const bool finished : {false, true})
    for (const size_t size : {1, 4095, 4096, 20000}) {
      const CsioPtr io = make_csio();
      append(io, pattern(size));
      if (finished) csio_finish(io.get());
      EXPECT_EQ(csio_dup2file(io.get()), 0);
      EXPECT_EQ(log.text(), "");
      EXPECT_EQ(io->flags, both);
      EXPECT_EQ(io->length, size);
      EXPECT_EQ(io->finished, 1);
      EXPECT_EQ(csio_releasefd(io.get()), 0);
      EXPECT_EQ(io->fd, -1);
      EXPECT_EQ(support::read_file(io->filename), pattern(size));
      support::write_file(io->filename, "other");
      EXPECT_EQ(copy(io, 30000), pattern(size)) << "memory is read, not the file";
    }
}

TEST_F(CsioFile, DuplicateOfAnEmptyBufferHasNoFile) {
  const CsioPtr io = make_csio();
  EXPECT_EQ(csio_dup2file(io.get()), 0);
  EXPECT_EQ(io->flags, both);
  EXPECT_EQ(io->filename, nullptr);
  EXPECT_EQ(io->finished, 1);
}

TEST_F(CsioFile, DuplicateAndConvertOfABufferWithAFileDoNothing) {
  const CsioPtr io = make_csio();
  append(io, "text");
  csio_dup2file(io.get());
  EXPECT_EQ(csio_dup2file(io.get()), 0x11) << "the flags";
  EXPECT_EQ(csio_convert2file(io.get()), 0);
  EXPECT_EQ(io->flags, both);
  const CsioPtr in_file = make_file_buffer();
  append(in_file, "text");
  EXPECT_EQ(csio_dup2file(in_file.get()), 0x10) << "the flags";
  EXPECT_EQ(csio_convert2file(in_file.get()), 0);
  EXPECT_EQ(in_file->finished, 0);
  EXPECT_EQ(in_file->wbuf_len, 4);
}

TEST_F(CsioFile, DuplicateWithoutAFileKeepsTheMemory) {
  for (const bool no_directory : {true, false}) {
    const CsioPtr io = make_csio();
    append(io, "text");
    set_failures(no_directory, !no_directory);
    EXPECT_EQ(csio_dup2file(io.get()), 0);
    EXPECT_EQ(io->flags, both);
    EXPECT_EQ(io->filename == nullptr, no_directory);
    EXPECT_THAT(files(), IsEmpty());
    EXPECT_EQ(io->length, 4u);
    EXPECT_EQ(copy(io, 10), "text");
  }
}

TEST_F(CsioFile, ResetAfterADuplicateGrowsInMemoryPastTheCeiling) {
  const CsioPtr io = make_csio(8192);
  append(io, "text");
  csio_dup2file(io.get());
  const std::string first = io->filename;
  csio_reset(io.get());
  EXPECT_FALSE(support::file_exists(first));
  EXPECT_EQ(io->flags, both);
  EXPECT_EQ(append(io, pattern(20000)), 20000);
  EXPECT_EQ(append(io, pattern(20000)), 20000);
  EXPECT_EQ(io->flags, both);
  EXPECT_EQ(io->filename, nullptr);
  EXPECT_EQ(copy(io, 50000), pattern(20000) + pattern(20000));
}

}  // namespace
