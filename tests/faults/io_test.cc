// SPDX-License-Identifier: MIT
/// Requests while files fail: each file operation of each request fails once with each errno.

#include <cerrno>

#include "faults/requests.h"

using namespace rdm;

namespace {

using faults::Answer;
using faults::SampleRequest;

constexpr long operation_limit = 20000;
constexpr long no_blocks = 0;

/// Fault says which operation fails and with which errno.
struct Fault {
  long countdown = 0;  // operations until the failing one; 0 or less: none
  int error = EIO;
} fault;

bool strikes() { return --fault.countdown == 0; }

int fail() {
  errno = fault.error;
  return -1;
}

const qxapi_host &posix() { return *qxapi_posix_host(); }

host_fd open_read(const char *path) { return strikes() ? fail() : posix().open_read(path); }
host_fd open_write(const char *path) { return strikes() ? fail() : posix().open_write(path); }
host_fd open_append(const char *path) { return strikes() ? fail() : posix().open_append(path); }
host_fd open_readwrite(const char *path) { return strikes() ? fail() : posix().open_readwrite(path); }
int32_t read(host_fd fd, void *buffer, int32_t n) { return strikes() ? fail() : posix().read(fd, buffer, n); }
int write(host_fd fd, const void *bytes, int32_t n) {
  if (!strikes()) return posix().write(fd, bytes, n);
  fail();
  return 0;
}
int write_log(host_fd fd, const void *bytes, int32_t n) {
  if (!strikes()) return posix().write_log(fd, bytes, n);
  fail();
  return 0;
}
int64_t seek(host_fd fd, int64_t offset, int whence) { return strikes() ? fail() : posix().seek(fd, offset, whence); }
int close(host_fd fd) {
  const int result = posix().close(fd);
  return strikes() ? fail() : result;
}
int stat(const char *path, struct stat *st) { return strikes() ? fail() : posix().stat(path, st); }
int unlink(const char *path) {
  const int result = posix().unlink(path);
  return strikes() ? fail() : result;
}

qxapi_host failing_host() {
  qxapi_host host = posix();
  host.open_read = open_read;
  host.open_write = open_write;
  host.open_append = open_append;
  host.open_readwrite = open_readwrite;
  host.read = read;
  host.write = write;
  host.write_log = write_log;
  host.seek = seek;
  host.close = close;
  host.stat = stat;
  host.unlink = unlink;
  return host;
}

class IoFaults : public ::testing::TestWithParam<SampleRequest> {
 protected:
  ~IoFaults() override { fault = Fault{}; }

  /// sweep fails every operation in turn, those that open the catalog too, and returns their number.
  long sweep(int error) {
    for (long n = 1; n <= operation_limit; ++n) {
      bool reached = false;
      service_.change_catalog();
      const Answer answer = service_.answer(
          GetParam(),
          [&] {
            fault = Fault{n, error};
          },
          [&] {
            reached = fault.countdown <= 0;
            fault = Fault{};
          });
      if (!reached) return n - 1;
      EXPECT_TRUE(faults::is_honest(answer, right_))
          << "operation " << n << " errno " << error << ": " << answer.body.substr(0, 300);
    }
    return operation_limit;
  }

  /// A verbose log, so that its writing fails too.
  support::TemporaryDirectory logs_;
  faults::Service service_{failing_host(), no_blocks,
                           "debug-loglevel=\"9\" debug-logfile=\"" + logs_.path("debug") + "\""};
  const Answer right_ = service_.answer(GetParam());
};

TEST_P(IoFaults, NoAnswerIsWrong) {
  ASSERT_EQ(right_.outcome, hosts::Outcome::answered);
  ASSERT_NE(right_.body, "");
  for (const int error : {EIO, ENOSPC, EMFILE, EINTR}) {
    const long operations = sweep(error);
    EXPECT_GE(operations, GetParam().file_operations) << error;
    EXPECT_LT(operations, operation_limit) << error;
  }
  EXPECT_EQ(service_.answer(GetParam()).body, right_.body) << "after all failures";
}

INSTANTIATE_TEST_SUITE_P(Requests, IoFaults, ::testing::ValuesIn(faults::requests()), faults::name_of);

}  // namespace
