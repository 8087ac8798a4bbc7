// SPDX-License-Identifier: MIT
#include "hosts/common/plugin.h"

#include <string>

#include <gtest/gtest.h>

using namespace rdm;

#include "support/directories.h"

namespace {

using hosts::Plugin;
using hosts::PluginError;

std::string failure(const std::string &path) {
  try {
    const Plugin plugin(path);
  } catch (const PluginError &error) {
    return error.what();
  }
  return "";
}

TEST(PluginLoading, SaysWhichFileIsMissing) {
  EXPECT_EQ(
      failure("/nonexistent/plugin.so"),
      "cannot load the plug-in: /nonexistent/plugin.so: cannot open shared object file: No such file or directory");
}

TEST(PluginLoading, TakesANameWithoutASlashAsAFileOfTheCurrentDirectory) {
  // dlopen() alone would find this library along its search path.
  EXPECT_NE(failure("libc.so.6").find("/libc.so.6: cannot open shared object file"), std::string::npos);
}

TEST(PluginLoading, RefusesALibraryWithoutTheFourEntries) {
  const std::string path = support::in_build("lib/libqxapi.so.3");
  EXPECT_EQ(failure(path), "cannot load the plug-in: " + path + ": no symbol rdm_init");
}

}  // namespace
