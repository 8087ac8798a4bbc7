// SPDX-License-Identifier: MIT
#include <cerrno>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

const qxapi_host &posix() { return *qxapi_posix_host(); }

TEST(PosixRequest, HeadersAreFoundInAnyLetterCase) {
  const PblockPtr headers(host_param_create(3));
  host_param_add("content-length", "7", headers.get());
  Request request{};
  request.headers = headers.get();
  for (const char *name : {"content-length", "Content-Length", "CONTENT-LENGTH"}) {
    char *value = nullptr;
    EXPECT_EQ(host_request_header(name, &value, nullptr, &request), 0);
    EXPECT_STREQ(value, "7");
  }
}

TEST(PosixRequest, AbsentHeadersAreNull) {
  const PblockPtr headers(host_param_create(3));
  host_param_add("content-length", "7", headers.get());
  Request request{};
  request.headers = headers.get();
  for (const std::string &name : {std::string("content"), std::string(), std::string(1000, 'x')}) {
    char *value = const_cast<char *>("before");
    EXPECT_EQ(host_request_header(name.c_str(), &value, nullptr, &request), 0);
    EXPECT_EQ(value, nullptr);
  }
}

TEST(PosixRequest, LongHeaderNamesAreNotTakenForShorterOnes) {
  const std::string longest(255, 'x');
  const PblockPtr headers(host_param_create(3));
  host_param_add(longest.c_str(), "7", headers.get());
  Request request{};
  request.headers = headers.get();
  char *value = nullptr;
  EXPECT_EQ(host_request_header(longest.c_str(), &value, nullptr, &request), 0);
  EXPECT_STREQ(value, "7");
  EXPECT_EQ(host_request_header((longest + "x").c_str(), &value, nullptr, &request), 0);
  EXPECT_EQ(value, nullptr);
}

TEST(PosixRequest, InputEndsWhereTheBytesEnd) {
  const unsigned char bytes[] = {'a', 0xFF};
  host_input input{bytes, 0, 2, nullptr};
  EXPECT_EQ(host_input_next(&input, 10), 'a');
  EXPECT_EQ(input.position, 1);
  EXPECT_EQ(host_input_next(&input, 10), 0xFF);
  EXPECT_EQ(host_input_next(&input, 10), 0);
  EXPECT_EQ(host_input_next(&input, 10), 0);
  EXPECT_EQ(input.position, 2);
}

TEST(PosixRequest, StatusIsKeptInTheRequest) {
  Request request{};
  host_set_status(nullptr, &request, 404, "Not Found");
  EXPECT_EQ(request.status, 404);
  host_set_status(nullptr, &request, 200, nullptr);
  EXPECT_EQ(request.status, 200);
  EXPECT_EQ(host_start_response(nullptr, &request), HOST_DONE);
}

TEST(PosixRequest, ThereIsNoClientToWriteTo) {
  errno = 0;
  EXPECT_EQ(posix().net_write(nullptr, "bytes", 5), -1);
  EXPECT_EQ(errno, ENOTCONN);
  errno = 0;
  EXPECT_EQ(posix().buffer_send(nullptr, nullptr), -1);
  EXPECT_EQ(errno, ENOTCONN);
}

}  // namespace
