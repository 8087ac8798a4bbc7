// SPDX-License-Identifier: MIT
#include "qxapi/line_reader.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/files.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

class Lines : public support::HostTest {
 protected:
  std::string file(const std::string &text) const { return directory_.write("text", text); }

  static std::vector<std::string> lines_of(LineReader &reader) {
    std::vector<std::string> lines;
    while (const char *line = reader.next()) lines.emplace_back(line);
    return lines;
  }

 private:
  support::TemporaryDirectory directory_;
};

TEST_F(Lines, CommentsAndEmptyLinesAreLeftOut) {
  LineReader reader(file("# remark\n\none\r\n\r\n #two\n#\nthree").c_str(), 16);
  ASSERT_TRUE(reader);
  EXPECT_EQ(lines_of(reader), (std::vector<std::string>{"one", " #two", "three"}));
  EXPECT_TRUE(reader.is_at_end());
}

TEST_F(Lines, LongLinesAreCut) {
  LineReader reader(file(std::string(9000, 'x') + "\nnext\n").c_str(), 8192);
  EXPECT_EQ(lines_of(reader), (std::vector<std::string>{std::string(8191, 'x'), "next"}));
}

TEST_F(Lines, WithoutTheFileTheReaderIsNotOpen) {
  const LineReader reader("/nonexistent", 16);
  EXPECT_STREQ(host_last_error_text(), "No such file or directory");
  EXPECT_FALSE(reader.is_open());
  EXPECT_FALSE(reader);
}

TEST_F(Lines, WithoutMemoryTheFileIsOpenAndTheReaderFalse) {
  const std::string path = file("one\n");
  host.fail_allocation = host.allocations + 1;
  const LineReader reader(path.c_str(), 16);
  EXPECT_TRUE(reader.is_open());
  EXPECT_FALSE(reader);
}

TEST_F(Lines, AReadErrorIsNotTheEnd) {
  qxapi_host broken = support::memory_host();
  broken.getline = [](host_buffer *, int, int, char *) {
    errno = EIO;
    return -1;
  };
  const std::string path = file("one\n");
  qxapi_bind(&broken);
  LineReader reader(path.c_str(), 16);
  EXPECT_EQ(reader.next(), nullptr);
  EXPECT_STREQ(host_last_error_text(), "Input/output error");
  EXPECT_FALSE(reader.is_at_end());
}

}  // namespace
