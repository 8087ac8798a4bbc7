// SPDX-License-Identifier: MIT
// The output of minidba on a terminal.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "catalog/catalog_files.h"
#include "hosts/rdmd/rdmd_process.h"
#include "qxapi/guard.h"

using namespace rdm;

namespace {

using testing::HasSubstr;

class Terminal : public testing::Test {
 protected:
  Terminal() : screen_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (!screen_ || ::grantpt(screen_.get()) != 0 || ::unlockpt(screen_.get()) != 0)
      ADD_FAILURE() << "no terminal";
    else
      name_ = ::ptsname(screen_.get());
  }

  /// update runs an update whose input arrives in two parts, the second some time after the first has been read, and
  /// returns the screen.
  std::string update(const std::vector<std::string> &options, const std::string &errors) {
    std::vector<std::string> words = {"update"};
    words.insert(words.end(), options.begin(), options.end());
    const std::string input = catalog_.path(".in");
    EXPECT_EQ(::mkfifo(input.c_str(), 0600), 0);
    HostFileGuard pipe(::open(input.c_str(), O_RDWR | O_CLOEXEC));
    // While the terminal is open here, its output is not lost when the program ends.
    const HostFileGuard terminal(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const pid_t child = support::start(catalog_.command(words), input, catalog_.path(".out"), errors);
    put(pipe, rd("http://localhost/1", {{"title", "One"}}));
    EXPECT_TRUE(support::eventually([&] { return is_empty(pipe); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    put(pipe, rd("http://localhost/2", {{"title", "Two"}}));
    pipe = HostFileGuard();
    EXPECT_EQ(support::wait_for(child), 0);
    return screen();
  }
  static void put(const HostFileGuard &pipe, const std::string &text) {
    EXPECT_EQ(::write(pipe.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  /// is_empty returns true if all that was written to a pipe has been read.
  static bool is_empty(const HostFileGuard &pipe) {
    int unread = 1;
    return ::ioctl(pipe.get(), FIONREAD, &unread) == 0 && unread == 0;
  }
  /// screen returns what was written to the terminal since its last call.
  std::string screen() {
    std::string text;
    char block[4096];
    pollfd ready{screen_.get(), POLLIN, 0};
    while (::poll(&ready, 1, 100) == 1 && (ready.revents & POLLIN) != 0) {
      const ssize_t got = ::read(screen_.get(), block, sizeof block);
      if (got <= 0) break;
      text.append(block, static_cast<size_t>(got));
    }
    return text;
  }
  std::string out() { return support::read_file(catalog_.path(".out")); }

  HostFileGuard screen_;
  std::string name_;
  CatalogFiles catalog_;
};

TEST_F(Terminal, ShowsHowFarLongWorkIs) {
  const std::string text = update({}, name_);
  EXPECT_THAT(text, testing::StartsWith("\rminidba: reading the input: "));
  EXPECT_THAT(text, HasSubstr("/s\x1b[K\r\x1b[K")) << "the line is taken away";
  EXPECT_THAT(text, testing::EndsWith("minidba: 2 new, 0 changed, 0 unchanged, 0 rejected\r\n"));
  EXPECT_EQ(out(), "2\n");
}

TEST_F(Terminal, ShowsNothingWhenItIsToBeQuiet) {
  EXPECT_EQ(update({"--quiet"}, name_), "");
  EXPECT_EQ(out(), "2\n");
}

// Without this note, a verb without a file and a pipe seems to hang.
TEST_F(Terminal, SaysThatItReadsFromTheTerminal) {
  const std::string object = "@D { http://localhost/1\nt{1}:\tx\n}\n";
  const struct {
    std::vector<std::string> words;
    std::string typed;
    const char *first_line;
  } rows[] = {
      {{"update"}, object, "minidba: update reads from the terminal; Ctrl-D at the start of a line ends it\n"},
      {{"delete", "-"}, "1\n", "minidba: delete reads from the terminal; Ctrl-D at the start of a line ends it\n"},
      {{"update", "--quiet", "-"}, object, ""},
  };
  for (const auto &row : rows) {
    const HostFileGuard terminal(::open(name_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    const std::string errors = catalog_.path(".err"), typed = row.typed + "\x04";
    const pid_t child = support::start(catalog_.command(row.words), name_, catalog_.path(".out"), errors);
    ASSERT_EQ(::write(screen_.get(), typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
    support::wait_for(child);
    EXPECT_THAT(support::read_file(errors), testing::StartsWith(row.first_line));
    EXPECT_EQ(out(), "1\n") << row.words[0];
    ::tcflush(terminal.get(), TCIOFLUSH);
  }
}

TEST_F(Terminal, AFileGetsNoProgress) {
  EXPECT_EQ(update({}, catalog_.path(".err")), "");
  EXPECT_EQ(support::read_file(catalog_.path(".err")), "minidba: 2 new, 0 changed, 0 unchanged, 0 rejected\n");
}

}  // namespace
