// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"
#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

struct LineCase {
  const char *what;
  std::string text;
  std::vector<std::string> lines;
};

class Buffer : public support::HostTest, public ::testing::WithParamInterface<int> {
 protected:
  /// lines reads a whole file in lines of at most `limit` bytes, NUL included.
  std::vector<std::string> lines(const std::string &text, int limit) {
    const HostFileGuard file(host_open_read(directory.write("text", text).c_str()));
    const ReaderPtr reader(host_buffer_open(file.get(), GetParam()));
    std::vector<std::string> found;
    std::string line(static_cast<size_t>(limit) + 1, '!');
    while (host_getline(reader.get(), static_cast<int>(found.size()), limit, line.data()) == 0)
      found.emplace_back(line.c_str());
    EXPECT_EQ(line.back(), '!') << "wrote past the limit";
    EXPECT_EQ(host_getline(reader.get(), 0, limit, line.data()), 1) << "the end stays the end";
    EXPECT_STREQ(line.c_str(), "");
    return found;
  }

  support::TemporaryDirectory directory;
};

INSTANTIATE_TEST_SUITE_P(Sizes, Buffer, ::testing::Values(1, 2, 7, 4096));

TEST_P(Buffer, ReadsLines) {
  const LineCase cases[] = {
      {"nothing", "", {}},
      {"one line", "one\n", {"one"}},
      {"lines", "one\ntwo\nthree\n", {"one", "two", "three"}},
      {"the last without newline", "one\ntwo", {"one", "two"}},
      {"empty lines", "\n\none\n\n", {"", "", "one", ""}},
      {"carriage returns", "one\r\ntwo\r\n\r\n", {"one", "two", ""}},
      {"a carriage return inside", "o\rne\r\r\n", {"o\rne\r"}},
      {"a carriage return at the very end", "one\r", {"one\r"}},
      {"only a carriage return", "\r", {"\r"}},
      {"blanks", " one \t\n", {" one \t"}},
      {"bytes above 127", "\xFF\xFE\n", {"\xFF\xFE"}},
      {"exactly the limit", "123456789\nnext\n", {"123456789", "next"}},
      {"exactly the limit, then CR LF", "123456789\r\nnext\n", {"123456789", "next"}},
      {"one over the limit", "1234567890\nnext\n", {"123456789", "next"}},
      {"far over the limit", std::string(50, 'x') + "\nnext\n", {"xxxxxxxxx", "next"}},
      {"over the limit at the end", "1234567890", {"123456789"}},
      {"a cut before a carriage return inside", "12345678\r0\nnext\n", {"12345678\r", "next"}},
  };
  for (const LineCase &test : cases) EXPECT_EQ(lines(test.text, 10), test.lines) << test.what;
}

TEST_P(Buffer, LimitOfOneHoldsNoText) { EXPECT_EQ(lines("one\ntwo\n", 1), (std::vector<std::string>{"", ""})); }

TEST_P(Buffer, LimitBelowOneIsAnError) {
  const HostFileGuard file(host_open_read(directory.write("text", "one\n").c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), GetParam()));
  char line[] = "untouched";
  EXPECT_EQ(host_getline(reader.get(), 1, 0, line), -1);
  EXPECT_EQ(host_getline(reader.get(), 1, -1, line), -1);
  EXPECT_STREQ(line, "untouched");
}

TEST_P(Buffer, ReadsAFileThatGrows) {
  const std::string path = directory.write("text", "one\n");
  const HostFileGuard file(host_open_read(path.c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), GetParam()));
  char line[10];
  EXPECT_EQ(host_getline(reader.get(), 1, sizeof line, line), 0);
  EXPECT_EQ(host_getline(reader.get(), 2, sizeof line, line), 1);
  support::write_file(path, "one\ntwo\n");
  EXPECT_EQ(host_getline(reader.get(), 2, sizeof line, line), 0);
  EXPECT_STREQ(line, "two");
}

TEST_P(Buffer, ReadErrorIsMinusOne) {
  const HostFileGuard file(host_open_read(directory.path().c_str()));  // read() fails with EISDIR
  ASSERT_TRUE(file);
  const ReaderPtr reader(host_buffer_open(file.get(), GetParam()));
  char line[10];
  EXPECT_EQ(host_getline(reader.get(), 1, sizeof line, line), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_STREQ(line, "");
}

int reads_left = 0;
int32_t failing_read(host_fd fd, void *buffer, int32_t n) {
  return reads_left-- > 0 ? qxapi_posix_host()->read(fd, buffer, n) : -1;
}

TEST_P(Buffer, ReadErrorInsideALineIsMinusOne) {
  qxapi_host table = support::memory_host();
  table.read = failing_read;
  qxapi_bind(&table);
  reads_left = 1;
  const HostFileGuard file(host_open_read(directory.write("text", std::string(5000, 'x')).c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), GetParam()));
  char line[5000];
  EXPECT_EQ(host_getline(reader.get(), 1, sizeof line, line), -1);
}

TEST_P(Buffer, CloseLeavesTheDescriptorOpen) {
  const HostFileGuard file(host_open_read(directory.write("text", "one\n").c_str()));
  ReaderPtr(host_buffer_open(file.get(), GetParam())).reset();
  EXPECT_NE(::fcntl(file.get(), F_GETFD), -1);
}

class BufferOpen : public support::HostTest {};

TEST_F(BufferOpen, RefusesNoFileAndNoRoom) {
  EXPECT_EQ(host_buffer_open(-1, 100), nullptr);
  EXPECT_EQ(host_buffer_open(0, 0), nullptr);
  EXPECT_EQ(host_buffer_open(0, -1), nullptr);
  host_buffer_close(nullptr);
  qxapi_posix_host()->buffer_close(nullptr);
  EXPECT_EQ(host.live_blocks, 0);
}

}  // namespace
