// SPDX-License-Identifier: MIT
#include "qxapi/temporary_directory.h"

#include <string>

#include <gtest/gtest.h>
#include <qxapi/qxapi.h>

#include "support/environment.h"
#include "support/files.h"

using namespace rdm;

namespace {

TEST(TemporaryDirectory, IsTheNamedDirectoryOrTmp) {
  const support::TemporaryDirectory directory;
  const std::string place = directory.path(), file = directory.write("file", "");
  const struct {
    const char *variable;
    std::string named, usable;
  } cases[] = {
      {place.c_str(), place, place}, {nullptr, "/tmp", "/tmp"},
      {"", "/tmp", "/tmp"},          {"/nonexistent", "/nonexistent", "/tmp"},
      {file.c_str(), file, "/tmp"},
  };
  for (const auto &row : cases) {
    const support::Environment environment("TMPDIR", row.variable);
    EXPECT_EQ(named_temporary_directory(), row.named);
    EXPECT_EQ(temporary_directory(::stat), row.usable);
    EXPECT_EQ(temporary_directory(host_stat), row.usable);
  }
}

TEST(TemporaryDirectory, IsNullIfNoneIsUsable) {
  EXPECT_EQ(temporary_directory([](const char *, struct stat *) { return -1; }), nullptr);
}

}  // namespace
