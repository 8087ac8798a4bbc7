// SPDX-License-Identifier: MIT
#include <cerrno>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "qxapi/guard.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

const qxapi_host &posix() { return *qxapi_posix_host(); }

TEST(PosixRequest, HeadersAreFoundInAnyLetterCaseOrNull) {
  const std::string longest(255, 'x');
  const PblockPtr headers(host_param_create(3));
  for (const char *name : {"content-length", longest.c_str()}) host_param_add(name, "7", headers.get());
  Request request{};
  request.headers = headers.get();
  const std::pair<std::string, bool> rows[] = {{"content-length", true}, {"Content-Length", true},
                                               {"CONTENT-LENGTH", true}, {longest, true},
                                               {"content", false},       {"", false},
                                               {longest + "x", false},   {std::string(1000, 'x'), false}};
  for (const auto &[name, is_there] : rows) {
    char *value = const_cast<char *>("before");
    EXPECT_EQ(host_request_header(name.c_str(), &value, nullptr, &request), 0) << name;
    EXPECT_EQ(value != nullptr ? value : "", std::string(is_there ? "7" : "")) << name;
  }
}

TEST(PosixRequest, InputNextReturnsZeroAfterTheLastByte) {
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
