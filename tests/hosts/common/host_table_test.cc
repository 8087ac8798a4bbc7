// SPDX-License-Identifier: MIT
#include "hosts/common/host_table.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/common/exchange.h"
#include "hosts/common/log_file.h"
#include "qxapi/guard.h"
#include "support/files.h"
#include "support/refused_new.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::Exchange;

class HostTable : public ::testing::Test {
 protected:
  HostTable() {
    hosts::bind_host([this](const hosts::Report &report) {
      reports_.push_back(std::to_string(report.degree) + "|" + std::string(report.function) + "|" +
                         std::string(report.client) + "|" + std::string(report.text) +
                         (report.request.empty() ? "" : "|" + std::string(report.request)));
    });
  }
  ~HostTable() override { qxapi_bind(nullptr); }

  static std::string queued(Exchange &exchange) {
    std::string bytes;
    for (const hosts::Piece &piece : exchange.queue().pieces()) {
      if (!piece.file) {
        bytes += piece.bytes;
        continue;
      }
      std::string part(static_cast<std::size_t>(piece.length), '\0');
      EXPECT_EQ(::pread(piece.file->get(), part.data(), part.size(), piece.offset), piece.length);
      bytes += part;
    }
    return bytes;
  }

  std::vector<std::string> reports_;
};

TEST_F(HostTable, StatusAndHeadGoToTheExchange) {
  Exchange exchange;
  host_set_status(exchange.session(), exchange.request(), 403, "No");
  EXPECT_EQ(host_start_response(exchange.session(), exchange.request()), HOST_DONE);
  EXPECT_EQ(exchange.head().status, 403);
  EXPECT_EQ(exchange.head().reason, "No");
  EXPECT_EQ(exchange.request()->status, 403);
}

TEST_F(HostTable, ASecondHeadIsRefused) {
  Exchange exchange;
  EXPECT_EQ(host_start_response(exchange.session(), exchange.request()), HOST_DONE);
  EXPECT_EQ(host_start_response(exchange.session(), exchange.request()), HOST_ABORT);
}

TEST_F(HostTable, WithoutASessionThereIsNothingToAnswer) {
  Request request{};
  host_set_status(nullptr, &request, 404, nullptr);
  EXPECT_EQ(request.status, 404);
  EXPECT_EQ(host_start_response(nullptr, &request), HOST_ABORT);
  EXPECT_EQ(host_net_write(nullptr, "x", 1), -1);
}

TEST_F(HostTable, WritesReturnTheirCountOrFail) {
  Exchange exchange;
  host_param_add("content-length", "5", exchange.request()->response);
  host_net *socket = exchange.session()->socket;
  EXPECT_EQ(host_net_write(socket, "abc", 3), 3);
  EXPECT_EQ(host_net_write(socket, "", 0), 0);
  errno = 0;
  EXPECT_EQ(host_net_write(socket, "defg", 4), -1);
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(host_net_write(socket, "x", -1), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(queued(exchange), "abcde");
}

TEST_F(HostTable, RequestHeadersAreFoundInAnyLetterCase) {
  Exchange exchange;
  exchange.header("content-encoding", "x-gzip");
  char *value = nullptr;
  EXPECT_EQ(host_request_header("Content-Encoding", &value, exchange.session(), exchange.request()), 0);
  EXPECT_STREQ(value, "x-gzip");
  EXPECT_EQ(host_request_header("x-none", &value, exchange.session(), exchange.request()), 0);
  EXPECT_EQ(value, nullptr);
}

TEST_F(HostTable, SendsAWholeFile) {
  const support::TemporaryDirectory directory;
  for (const std::string text : {"whole file\n", ""}) {
    Exchange exchange;
    {
      const HostFileGuard file(host_open_read(directory.write("file", text).c_str()));
      const ReaderPtr reader(host_buffer_open(file.get(), 4096));
      EXPECT_EQ(host_buffer_send(reader.get(), exchange.session()->socket), static_cast<std::int64_t>(text.size()));
      EXPECT_EQ(host_buffer_send(reader.get(), exchange.session()->socket), 0);
    }
    EXPECT_EQ(queued(exchange), text);
  }
}

TEST_F(HostTable, BufferSendSendsTheUnreadRest) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file(host_open_read(directory.write("file", "first line\nsecond line\nthird line\n").c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), 16));
  char line[64];
  ASSERT_EQ(host_getline(reader.get(), 1, sizeof line, line), 0);
  Exchange exchange;
  EXPECT_EQ(host_buffer_send(reader.get(), exchange.session()->socket), 23);
  EXPECT_EQ(queued(exchange), "second line\nthird line\n");
  EXPECT_EQ(host_getline(reader.get(), 2, sizeof line, line), 1);
}

TEST_F(HostTable, SendsFromAPipe) {
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const HostFileGuard read_end(ends[0]);
  {
    const HostFileGuard write_end(ends[1]);
    ASSERT_EQ(host_write(write_end.get(), "from a pipe", 11), 1);
  }
  const ReaderPtr reader(host_buffer_open(read_end.get(), 4096));
  Exchange exchange;
  EXPECT_EQ(host_buffer_send(reader.get(), exchange.session()->socket), 11);
  EXPECT_EQ(queued(exchange), "from a pipe");
}

TEST_F(HostTable, SendingFailsOnAClosedDescriptor) {
  const support::TemporaryDirectory directory;
  HostFileGuard file(host_open_read(directory.write("file", "text").c_str()));
  const ReaderPtr reader(host_buffer_open(file.get(), 4096));
  host_close(file.release());
  Exchange exchange;
  EXPECT_EQ(host_buffer_send(reader.get(), exchange.session()->socket), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(host_buffer_send(reader.get(), nullptr), -1);
}

TEST_F(HostTable, SendsSlices) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("records"), "0123456789", {{5, 2, 0}, {1, 3, 0}});
  const host_slice slice = files.all();
  Exchange exchange;
  EXPECT_EQ(host_sends_slices(), 1);
  EXPECT_EQ(host_send_slice(exchange.session()->socket, &slice), 5);
  EXPECT_EQ(exchange.queue().size(), 5);
  EXPECT_EQ(host_send_slice(nullptr, &slice), -1);
  EXPECT_EQ(errno, ENOTCONN);
}

TEST_F(HostTable, ReportsNameFunctionAndClientInOneLine) {
  Exchange exchange;
  exchange.client("ip", "192.0.2.7");
  host_report_error(0, "rdm-service", exchange.session(), exchange.request(), "Unknown CSID: %s\n", "x\ny");
  exchange.variable(hosts::request_id_variable, "0123abc");
  host_report_error(0, "rdm-service", exchange.session(), exchange.request(), "%s", "of a request");
  host_report_error(1, "rdm-init", nullptr, nullptr, "%s", "no request");
  EXPECT_EQ(reports_,
            (std::vector<std::string>{"0|rdm-service|192.0.2.7|Unknown CSID: x\\ny",
                                      "0|rdm-service|192.0.2.7|of a request|0123abc", "1|rdm-init||no request"}));
}

TEST_F(HostTable, AReportIsCutRatherThanGrown) {
  host_report_error(0, "f", nullptr, nullptr, "%s", std::string(20'000, 'x').c_str());
  ASSERT_EQ(reports_.size(), 1u);
  EXPECT_EQ(reports_[0], "0|f||" + std::string(8191, 'x'));
}

TEST_F(HostTable, AReportIsCutAfterItsEscaping) {
  // Regression: the text was cut before it was escaped, and escaping makes four bytes of one.
  std::string escaped;
  for (int i = 0; i < 2047; ++i) escaped += "\\x01";
  host_report_error(0, "f", nullptr, nullptr, "%s", std::string(8191, '\x01').c_str());
  EXPECT_EQ(reports_, std::vector<std::string>{"0|f||" + escaped});
}

TEST_F(HostTable, ExitsRunOnceInTheOrderOfRegistration) {
  static std::string order;
  const auto note = [](void *argument) { order += static_cast<const char *>(argument); };
  char first[] = "1", second[] = "2", third[] = "3";
  for (char *name : {first, second, third}) host_register_exit(note, name);
  EXPECT_EQ(order, "");
  hosts::run_exits();
  EXPECT_EQ(order, "123");
  hosts::run_exits();
  EXPECT_EQ(order, "123");
}

TEST_F(HostTable, CountsFailedAllocations) {
  const long before = hosts::resource_failures();
  host_free(host_alloc(1));
  host_free(host_strdup("x"));
  EXPECT_EQ(hosts::resource_failures(), before);

  qxapi_host nothing = *qxapi_posix_host();
  nothing.alloc = [](size_t) -> void * { return nullptr; };
  nothing.realloc = [](void *, size_t) -> void * { return nullptr; };
  nothing.strdup = [](const char *) -> char * { return nullptr; };
  hosts::bind_host([](const hosts::Report &) {}, nothing);
  EXPECT_EQ(host_alloc(1), nullptr);
  EXPECT_EQ(host_realloc(nullptr, 1), nullptr);
  EXPECT_EQ(host_strdup("x"), nullptr);
  EXPECT_EQ(hosts::resource_failures(), before + 3);
  EXPECT_EQ(hosts::last_resource_failure(), ENOMEM);
}

TEST_F(HostTable, MemoryThatFailsInTheHostIsAnAnswerToThePlugin) {
  // No exception may pass through the plug-in's frames.
  const std::string text(60'000, 'x');
  Exchange exchange;
  {
    const support::RefusedNew reason(text.size(), 2 * text.size());
    errno = 0;
    host_set_status(exchange.session(), exchange.request(), 403, text.c_str());
    EXPECT_TRUE(reason.done());
    EXPECT_EQ(errno, ENOMEM);
  }
  const support::RefusedNew piece(text.size(), 2 * text.size());
  errno = 0;
  EXPECT_EQ(host_net_write(exchange.session()->socket, text.data(), static_cast<int32_t>(text.size())), -1);
  EXPECT_TRUE(piece.done());
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(queued(exchange), "");
}

TEST_F(HostTable, CountsFailedFileOperations) {
  const support::TemporaryDirectory directory;
  const long before = hosts::resource_failures();
  EXPECT_EQ(host_open_write(directory.path("none/file").c_str()), -1);
  EXPECT_EQ(host_open_append(directory.path("none/file").c_str()), -1);
  const HostFileGuard full(::open("/dev/full", O_WRONLY));
  EXPECT_EQ(hosts::last_resource_failure(), ENOENT);
  EXPECT_EQ(host_write(full.get(), "x", 1), 0);
  EXPECT_EQ(hosts::last_resource_failure(), ENOSPC);
  char byte = 0;
  EXPECT_EQ(host_read(full.get(), &byte, 1), -1);
  EXPECT_EQ(host_seek(-1, 0, SEEK_SET), -1);
  EXPECT_EQ(hosts::resource_failures(), before + 5);
}

TEST_F(HostTable, FailuresThatLoseNoDataAreNotCounted) {
  const support::TemporaryDirectory directory;
  const std::string loop = directory.path("loop");
  std::filesystem::create_symlink(loop, loop);
  const std::string long_name(5000, 'x');
  int ends[2];
  ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
  const HostFileGuard read_end(ends[0]), write_end(ends[1]), open_directory(host_open_read(directory.path().c_str()));
  const long before = hosts::resource_failures();
  struct stat status;
  for (const char *path : {"/nowhere", "/dev/null/nowhere", loop.c_str(), long_name.c_str()}) {
    EXPECT_EQ(host_open_read(path), -1) << path;
    EXPECT_EQ(host_stat(path, &status), -1) << path;
  }
  char byte = 0;
  EXPECT_EQ(host_read(open_directory.get(), &byte, 1), -1);
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(host_seek(write_end.get(), 0, SEEK_END), -1);
  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(hosts::resource_failures(), before);
}

TEST_F(HostTable, AMissingDirectoryForTemporaryFilesIsCounted) {
  // Regression: in a container without /tmp, long requests were answered with their headers only.
  const auto absent = [](const char *, struct stat *) {
    errno = ENOENT;
    return -1;
  };
  const auto a_file = [](const char *, struct stat *status) { return ::stat("/dev/null", status); };
  qxapi_host bare = *qxapi_posix_host();
  for (int (*look)(const char *, struct stat *) : {+absent, +a_file}) {
    bare.stat = look;
    hosts::bind_host([](const hosts::Report &) {}, bare);
    const long before = hosts::resource_failures();
    struct stat status;
    host_stat(P_tmpdir, &status);
    EXPECT_EQ(hosts::resource_failures(), before + 1);
    EXPECT_EQ(hosts::last_resource_failure(), look == +absent ? ENOENT : ENOTDIR);
  }
}

TEST_F(HostTable, LogsOfThePluginAreReopenedUnderTheirDescriptors) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("log");
  const HostFileGuard log(host_open_append(path.c_str()));
  const HostFileGuard closed(host_open_append(directory.path("closed").c_str()));
  host_write_log(log.get(), "one\n", 4);
  std::filesystem::rename(path, directory.path("log.1"));
  host_close(host_open_append(directory.path("gone").c_str()));
  std::filesystem::remove(directory.path("gone"));
  hosts::reopen_logs();
  host_write_log(log.get(), "two\n", 4);
  EXPECT_EQ(support::read_file(directory.path("log.1")), "one\n");
  EXPECT_EQ(support::read_file(path), "two\n");
  EXPECT_FALSE(support::file_exists(directory.path("gone")));
  EXPECT_EQ(reports_, std::vector<std::string>{});
}

TEST_F(HostTable, ALogOfThePluginThatCannotBeReopenedContinuesInTheOldFile) {
  const support::TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path("place"));
  const std::string path = directory.path("place/log");
  const HostFileGuard log(host_open_append(path.c_str()));
  std::filesystem::rename(directory.path("place"), directory.path("moved"));
  hosts::reopen_logs();
  EXPECT_EQ(host_write_log(log.get(), "still here\n", 11), 1);
  EXPECT_EQ(support::read_file(directory.path("moved/log")), "still here\n");
  EXPECT_EQ(reports_, std::vector<std::string>{"0|log||reopen " + path +
                                               ": No such file or directory; still writing to the old file"});
}

TEST_F(HostTable, DataThatAFileWasAppendedToIsNeverReopened) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("data");
  const HostFileGuard data(host_open_append(path.c_str()));
  EXPECT_EQ(host_write(data.get(), "one\n", 4), 1);
  std::filesystem::rename(path, directory.path("elsewhere"));
  hosts::reopen_logs();
  EXPECT_EQ(host_write(data.get(), "two\n", 4), 1);
  EXPECT_EQ(support::read_file(directory.path("elsewhere")), "one\ntwo\n");
  EXPECT_FALSE(support::file_exists(path));
}

TEST_F(HostTable, ALogOfThePluginNeverBlocksOnAPipeWithoutAReader) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("pipe"), line = std::string(99, 'x') + "\n";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const HostFileGuard log(host_open_append(path.c_str()));
  ASSERT_TRUE(log);
  int dropped = 0;
  for (int i = 0; i < 20'000; ++i) dropped += host_write_log(log.get(), line.data(), 100) == 1 ? 0 : 1;
  EXPECT_GT(dropped, 0);
  const HostFileGuard reader(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  std::string text(2'000'000, ' ');
  std::size_t got = 0;
  while (got < static_cast<std::size_t>(20'000 - dropped) * 100) {
    const ssize_t count = ::read(reader.get(), text.data() + got, text.size() - got);
    if (count > 0) got += static_cast<std::size_t>(count);
  }
  EXPECT_EQ(host_close(const_cast<HostFileGuard &>(log).release()), 0);
  const std::string start = "1|log||write " + path + ": ";
  EXPECT_EQ(reports_, (std::vector<std::string>{start + "1 line dropped",
                                                start + std::to_string(dropped - 1) + " lines dropped"}));
}

TEST_F(HostTable, ALogIsNotOpenedIfAllocationFails) {
  const support::TemporaryDirectory directory;
  const std::string path = directory.path("log");
  const long before = hosts::resource_failures();
  const support::RefusedNew log(sizeof(hosts::LogFile), sizeof(hosts::LogFile) + 64);
  EXPECT_EQ(host_open_append(path.c_str()), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(log.done());
  EXPECT_EQ(hosts::resource_failures(), before + 1);
}

}  // namespace
