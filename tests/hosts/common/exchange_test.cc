// SPDX-License-Identifier: MIT
#include "hosts/common/exchange.h"

#include <cerrno>
#include <new>
#include <string>

#include "support/files.h"
#include "support/memory_host.h"
#include "support/slices.h"

using namespace rdm;

namespace {

using hosts::Exchange;

class ExchangeTest : public support::HostTest {
 protected:
  static void declare(Exchange &exchange, const char *length) {
    host_param_add("content-length", length, exchange.request()->response);
  }
  static std::string queued(Exchange &exchange) {
    std::string bytes;
    for (const hosts::Piece &piece : exchange.queue().pieces())
      bytes +=
          piece.file ? "<file " + std::to_string(piece.offset) + "+" + std::to_string(piece.length) + ">" : piece.bytes;
    return bytes;
  }
};

TEST_F(ExchangeTest, HasFiveSeparateBlocksAndAnEmptyInput) {
  Exchange exchange;
  exchange.client("ip", "192.0.2.7");
  exchange.line("method", "GET");
  exchange.header("host", "example");
  const Session &session = *exchange.session();
  const Request &request = *exchange.request();
  EXPECT_STREQ(host_param_find("ip", session.client), "192.0.2.7");
  EXPECT_STREQ(host_param_find("method", request.line), "GET");
  EXPECT_STREQ(host_param_find("host", request.headers), "example");
  for (const char *name : {"ip", "method", "host"}) {
    EXPECT_EQ(host_param_find(name, request.response), nullptr);
    EXPECT_EQ(host_param_find(name, request.vars), nullptr);
  }
  EXPECT_EQ(session.input->size, 0);
  EXPECT_EQ(host_input_next(session.input, 1), 0);
  EXPECT_EQ(exchange.client_text("ip"), "192.0.2.7");
  EXPECT_EQ(exchange.client_text("dns"), "");
}

TEST_F(ExchangeTest, ItsVariablesAreSharedWithThePlugin) {
  Exchange exchange;
  EXPECT_EQ(exchange.variable("rdm-type"), "");
  exchange.variable("of-the-host", "one");
  EXPECT_STREQ(host_param_find("of-the-host", exchange.request()->vars), "one");
  host_param_add("rdm-type", "status-request", exchange.request()->vars);
  EXPECT_EQ(exchange.variable("rdm-type"), "status-request");
}

TEST_F(ExchangeTest, IsFoundFromItsSession) {
  Exchange exchange;
  EXPECT_EQ(hosts::exchange_of(exchange.session()), &exchange);
  EXPECT_EQ(hosts::exchange_of(nullptr), nullptr);
  EXPECT_EQ(exchange.session()->socket->exchange, &exchange);
}

TEST_F(ExchangeTest, HandsOutTheInputReadBeforehandAndThenItsEnd) {
  Exchange exchange;
  exchange.input(std::string("a\0\xff", 3));
  host_input *input = exchange.session()->input;
  EXPECT_EQ(input->size, 3);
  EXPECT_EQ(host_input_next(input, 1), 'a');
  EXPECT_EQ(host_input_next(input, 1), 0);
  EXPECT_EQ(host_input_next(input, 1), 0xff);
  EXPECT_EQ(host_input_next(input, 1), 0);
  EXPECT_EQ(host_input_next(input, 1), 0);
}

TEST_F(ExchangeTest, IsNotAnsweredUntilThePluginStarts) {
  Exchange exchange;
  EXPECT_FALSE(exchange.started());
  EXPECT_FALSE(exchange.delimited());
  EXPECT_TRUE(exchange.start());
  EXPECT_TRUE(exchange.started());
  EXPECT_EQ(exchange.head().status, 200);
}

TEST_F(ExchangeTest, StartingFreezesTheHead) {
  Exchange exchange;
  exchange.set_status(403, "First");
  EXPECT_EQ(exchange.request()->status, 403);
  declare(exchange, "5");
  EXPECT_TRUE(exchange.start());
  exchange.set_status(500, "Second");
  host_param_add("x-late", "value", exchange.request()->response);
  EXPECT_FALSE(exchange.start());
  EXPECT_EQ(exchange.head().status, 403);
  EXPECT_EQ(exchange.head().reason, "First");
  EXPECT_EQ(exchange.head().fields.size(), 1u);
  EXPECT_EQ(exchange.head().length, 5);
}

TEST_F(ExchangeTest, ALaterStatusWithoutReasonForgetsTheEarlierReason) {
  Exchange exchange;
  exchange.set_status(403, "Bad scope");
  exchange.set_status(200, nullptr);
  exchange.start();
  EXPECT_EQ(exchange.head().status, 200);
  EXPECT_EQ(exchange.head().reason, "");
}

TEST_F(ExchangeTest, WritingStartsTheAnswer) {
  Exchange exchange;
  EXPECT_TRUE(exchange.write("text"));
  EXPECT_TRUE(exchange.started());
  EXPECT_EQ(queued(exchange), "text");
}

TEST_F(ExchangeTest, QueuesNoMoreThanDeclared) {
  Exchange exchange;
  declare(exchange, "10");
  exchange.start();
  EXPECT_TRUE(exchange.write("1234567"));
  EXPECT_FALSE(exchange.delimited());
  errno = 0;
  EXPECT_FALSE(exchange.write("890more"));
  EXPECT_EQ(errno, EMSGSIZE);
  EXPECT_EQ(queued(exchange), "1234567890");
  EXPECT_TRUE(exchange.delimited());
  EXPECT_FALSE(exchange.write("x"));
  EXPECT_TRUE(exchange.write(""));
  EXPECT_EQ(queued(exchange), "1234567890");
}

TEST_F(ExchangeTest, IsDelimitedIfItHasItsDeclaredLength) {
  const struct {
    const char *declared, *written;
    bool is_delimited;
  } cases[] = {
      {"3", "123", true}, {"10", "123", false}, {nullptr, "123", false}, {"0", "", true}, {nullptr, "", false}};
  for (const auto &row : cases) {
    Exchange exchange;
    if (row.declared != nullptr) declare(exchange, row.declared);
    exchange.start();
    EXPECT_TRUE(exchange.write(row.written));
    EXPECT_EQ(exchange.delimited(), row.is_delimited) << row.written;
  }
}

TEST_F(ExchangeTest, CountsButDoesNotQueueTheAnswerToHead) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file(host_open_read(directory.write("file", "0123456789").c_str()));
  Exchange exchange;
  exchange.head_only();
  declare(exchange, "8");
  exchange.start();
  EXPECT_TRUE(exchange.write("1234"));
  EXPECT_EQ(exchange.send_file(file.get(), 0, 10), 4);
  EXPECT_FALSE(exchange.write("5"));
  EXPECT_EQ(exchange.queue().size(), 0);
  EXPECT_TRUE(exchange.delimited());
}

TEST_F(ExchangeTest, AStatusWithoutBodyQueuesNoBytes) {
  for (const int status : {204, 304}) {
    Exchange exchange;
    exchange.set_status(status, nullptr);
    exchange.start();
    EXPECT_TRUE(exchange.write("text")) << status;
    EXPECT_EQ(exchange.queue().size(), 0) << status;
    EXPECT_TRUE(exchange.delimited()) << status;
  }
}

TEST_F(ExchangeTest, CutsAFileAtTheDeclaredLength) {
  const support::TemporaryDirectory directory;
  const HostFileGuard file(host_open_read(directory.write("file", "0123456789").c_str()));
  Exchange exchange;
  declare(exchange, "6");
  EXPECT_EQ(exchange.send_file(file.get(), 2, 4), 4);
  EXPECT_EQ(exchange.send_file(file.get(), 0, 10), 2);
  EXPECT_EQ(exchange.send_file(file.get(), 0, 10), 0);
  EXPECT_EQ(queued(exchange), "<file 2+4><file 0+2>");
  EXPECT_TRUE(exchange.delimited());
}

TEST_F(ExchangeTest, AFileThatCannotBeQueuedIsRefused) {
  Exchange exchange;
  errno = 0;
  EXPECT_EQ(exchange.send_file(-1, 0, 10), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(exchange.queue().size(), 0);
}

TEST_F(ExchangeTest, QueuesASliceOnlyIfAllOfItWasDeclared) {
  const support::TemporaryDirectory directory;
  const support::SliceFiles files(directory.path("records"), "0123456789", {{5, 2, 0}, {1, 3, 0}});
  for (const char *length : {"4", "5", "6"}) {
    Exchange exchange;
    declare(exchange, length);
    errno = 0;
    const bool fits = std::string(length) != "4";
    EXPECT_EQ(exchange.send_slice(files.all()), fits ? 5 : -1);
    EXPECT_TRUE(exchange.started());
    EXPECT_EQ(errno, fits ? 0 : EMSGSIZE);
    EXPECT_EQ(exchange.queue().size(), fits ? 5 : 0);
    EXPECT_EQ(exchange.delimited(), std::string(length) == "5");
  }
}

TEST_F(ExchangeTest, CountsASliceOfAnAnswerToHead) {
  Exchange exchange;
  exchange.head_only();
  declare(exchange, "5");
  EXPECT_EQ(exchange.send_slice({-1, -1, 0, 1, 5}), 5);
  EXPECT_EQ(exchange.queue().size(), 0);
  EXPECT_EQ(exchange.send_slice({-1, -1, 0, 1, 5}), -1) << "more than declared";
}

TEST_F(ExchangeTest, ASliceThatCannotBeQueuedIsRefused) {
  Exchange exchange;
  EXPECT_EQ(exchange.send_slice({-1, -1, 0, 1, 5}), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(ExchangeTest, ThrowsWhenItsBlocksCannotBeMade) {
  for (long number = 1; number <= 5; ++number) {
    host.allocations = 0;
    host.fail_allocation = number;
    EXPECT_THROW(Exchange(), std::bad_alloc) << number;
  }
  host.fail_allocation = 0;
  Exchange exchange;
  host.allocations = 0;
  host.fail_allocation = 1;
  EXPECT_THROW(exchange.header("name", std::string(5000, 'x')), std::bad_alloc);
  host.fail_allocation = 0;
}

}  // namespace
