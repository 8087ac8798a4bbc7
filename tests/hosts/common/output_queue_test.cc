// SPDX-License-Identifier: MIT
#include "hosts/common/output_queue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "support/environment.h"
#include "support/file_limit.h"
#include "support/files.h"
#include "support/memory_host.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::OutputQueue;
using hosts::Piece;

class Queue : public support::HostTest {};

std::string bytes_of(const Piece &piece) {
  if (!piece.file) return piece.bytes;
  std::string bytes(static_cast<std::size_t>(piece.length), '\0');
  EXPECT_EQ(::pread(piece.file->get(), bytes.data(), bytes.size(), piece.offset), piece.length);
  return bytes;
}

std::string bytes_of(const OutputQueue &queue) {
  std::string bytes;
  for (const Piece &piece : queue.pieces()) bytes += bytes_of(piece);
  return bytes;
}

std::string pattern(std::size_t size) {
  std::string text;
  for (std::size_t i = 0; text.size() < size; ++i) text += std::to_string(i) + ' ';
  text.resize(size);
  return text;
}

struct stat status_of(const Piece &piece) {
  struct stat status {};
  EXPECT_EQ(::fstat(piece.file->get(), &status), 0);
  return status;
}

TEST_F(Queue, CopiesBytesSoThatTheirSourceMayChange) {
  OutputQueue queue;
  std::string source = "answer";
  EXPECT_EQ(queue.append(source), 6u);
  source.assign(6, 'x');
  EXPECT_EQ(bytes_of(queue), "answer");
}

TEST_F(Queue, JoinsBytesThatFollowEachOther) {
  OutputQueue queue;
  queue.append("one ");
  queue.append("two");
  ASSERT_EQ(queue.pieces().size(), 1u);
  EXPECT_EQ(queue.pieces()[0].bytes, "one two");
  EXPECT_EQ(queue.pieces()[0].length, 7);
  EXPECT_EQ(queue.size(), 7);
}

TEST_F(Queue, Keeps64KiBInMemory) {
  OutputQueue queue;
  const std::string text = pattern(std::size_t{64} * 1024);
  EXPECT_EQ(queue.append(text), text.size());
  ASSERT_EQ(queue.pieces().size(), 1u);
  EXPECT_FALSE(queue.pieces()[0].file);
  EXPECT_EQ(bytes_of(queue), text);
}

TEST_F(Queue, ContinuesInAnUnlinkedFilePast64KiB) {
  const support::TemporaryDirectory directory;
  const support::Environment variable("TMPDIR", directory.path().c_str());
  OutputQueue queue;
  const std::string text = pattern(OutputQueue::default_memory + 1);
  EXPECT_EQ(queue.append(text), text.size());
  ASSERT_EQ(queue.pieces().size(), 2u);
  EXPECT_EQ(queue.pieces()[0].length, 64 * 1024);
  ASSERT_TRUE(queue.pieces()[1].file);
  EXPECT_EQ(queue.pieces()[1].length, 1);
  const struct stat status = status_of(queue.pieces()[1]);
  EXPECT_EQ(status.st_nlink, 0u);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_NE(::fcntl(queue.pieces()[1].file->get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
  EXPECT_EQ(bytes_of(queue), text);
}

TEST_F(Queue, KeepsTheOrderOfSmallWritesAfterTheFileWasBegun) {
  OutputQueue queue(4);
  std::string expected;
  for (const char *text : {"abc", "def", "g", "", "hi"}) {
    EXPECT_EQ(queue.append(text), std::string(text).size());
    expected += text;
  }
  ASSERT_EQ(queue.pieces().size(), 2u);
  EXPECT_EQ(queue.pieces()[0].bytes, "abcd");
  EXPECT_EQ(queue.pieces()[1].length, 5);
  EXPECT_EQ(bytes_of(queue), expected);
  EXPECT_EQ(queue.size(), 9);
}

TEST_F(Queue, ReturnsHowMuchTheDiskTook) {
  const support::TemporaryDirectory directory;
  const support::Environment variable("TMPDIR", directory.path().c_str());
  const std::string text = pattern(100'000);
  OutputQueue queue(4);
  std::size_t queued = 0;
  {
    const support::FileLimit full(30'000);
    queued = queue.append(text);
    EXPECT_EQ(errno, EFBIG);
    EXPECT_EQ(queue.append("more"), 0u);
  }
  EXPECT_EQ(queued, 30'004u);
  EXPECT_EQ(bytes_of(queue), text.substr(0, 30'004));
}

TEST_F(Queue, ReturnsHowMuchWasQueuedWhenNoFileCanBeMade) {
  const support::Environment variable("TMPDIR", "/nonexistent");
  OutputQueue queue(4);
  errno = 0;
  EXPECT_EQ(queue.append("abcdef"), 4u);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(queue.size(), 4);
  EXPECT_EQ(bytes_of(queue), "abcd");
}

TEST_F(Queue, QueuesAStretchOfAFileByDuplicatedDescriptor) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.write("file", "0123456789");
  OutputQueue queue;
  {
    const HostFileGuard file(host_open_read(path.c_str()));
    EXPECT_TRUE(queue.append_file(file.get(), 3, 4));
    ASSERT_EQ(queue.pieces().size(), 1u);
    EXPECT_NE(queue.pieces()[0].file->get(), file.get());
    EXPECT_NE(::fcntl(queue.pieces()[0].file->get(), F_GETFD) & FD_CLOEXEC, 0);
    ::lseek(file.get(), 9, SEEK_SET);
  }
  std::filesystem::remove(path);
  EXPECT_EQ(queue.size(), 4);
  EXPECT_EQ(bytes_of(queue), "3456");
}

TEST_F(Queue, KeepsTheOrderOfBytesAndFiles) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file(host_open_read(directory.write("file", "FILE").c_str()));
  OutputQueue queue(4);
  queue.append("ab");
  queue.append_file(file.get(), 0, 4);
  queue.append("cdef");
  queue.append_file(file.get(), 2, 2);
  queue.append("gh");
  EXPECT_EQ(bytes_of(queue), "abFILEcdefLEgh");
  EXPECT_EQ(queue.size(), 14);
}

TEST_F(Queue, QueuesASliceBetweenBytesWithoutACopy) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("records"), "0123456789", {{5, 2, 0}, {1, 3, 0}});
  OutputQueue queue(4);
  EXPECT_EQ(queue.append("ab"), 2u);
  EXPECT_TRUE(queue.append_slice(files.all()));
  EXPECT_EQ(queue.append("cd"), 2u);
  EXPECT_EQ(queue.size(), 9);
  const std::vector<Piece> pieces = queue.take();
  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_EQ(pieces[0].bytes, "ab");
  EXPECT_FALSE(pieces[1].is_bytes());
  EXPECT_EQ(pieces[1].length, 5);
  ASSERT_TRUE(pieces[1].records);
  EXPECT_EQ(pieces[1].records->count, 2u);
  EXPECT_EQ(pieces[1].records->length, 5);
  EXPECT_EQ(pieces[2].bytes, "cd");
}

TEST_F(Queue, ASliceWhoseFilesCannotBeKeptOpenIsRefused) {
  OutputQueue queue;
  EXPECT_FALSE(queue.append_slice({-1, -1, 0, 1, 5}));
  EXPECT_EQ(queue.size(), 0);
  EXPECT_TRUE(queue.pieces().empty());
}

TEST_F(Queue, NothingQueuesNothing) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file(host_open_read(directory.write("file", "FILE").c_str()));
  OutputQueue queue;
  EXPECT_EQ(queue.append(""), 0u);
  EXPECT_TRUE(queue.append_file(file.get(), 0, 0));
  EXPECT_TRUE(queue.pieces().empty());
  EXPECT_EQ(queue.size(), 0);
}

TEST_F(Queue, ADescriptorThatCannotBeDuplicatedIsRefused) {
  OutputQueue queue;
  errno = 0;
  EXPECT_FALSE(queue.append_file(-1, 0, 4));
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(queue.size(), 0);
}

TEST_F(Queue, TakingLeavesItEmpty) {
  OutputQueue queue;
  queue.append("abc");
  const auto pieces = queue.take();
  ASSERT_EQ(pieces.size(), 1u);
  EXPECT_EQ(pieces[0].bytes, "abc");
  EXPECT_EQ(queue.size(), 0);
  EXPECT_TRUE(queue.pieces().empty());
}

}  // namespace
