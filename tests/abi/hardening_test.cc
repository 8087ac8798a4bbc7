// SPDX-License-Identifier: MIT
/// Every program and library is built with the hardening options of compiler and linker.

#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"

using namespace rdm;

namespace {

using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class Hardening : public ::testing::TestWithParam<const char *> {
 protected:
  static std::string file() { return support::in_build(GetParam()); }

  /// output_of returns the output of a tool of the build for the file.
  static std::string output_of(const std::string &tool) {
    // NOLINTNEXTLINE(cert-env33-c): the command is the build's own tool
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen((tool + " " + file()).c_str(), "r"), ::pclose);
    std::string output;
    char block[4096];
    for (size_t n = 0; pipe && (n = std::fread(block, 1, sizeof block, pipe.get())) > 0;) output.append(block, n);
    return output;
  }
  static std::string read(const std::string &options) { return output_of(READELF " -W " + options); }

  /// compilers returns the compiler and options of each of our sources in the file, from its debug information. The
  /// sanitizers' own code is older C++.
  static std::vector<std::string> compilers() {
    std::vector<std::string> calls;
    std::istringstream strings(read("-p .debug_str"));
    for (std::string line; std::getline(strings, line);)
      if (line.find("GNU C++20") != std::string::npos) calls.push_back(line);
    return calls;
  }
};

TEST_P(Hardening, CodeIsLoadedAnywhere) { EXPECT_THAT(read("-h"), ContainsRegex("Type: +DYN")); }

TEST_P(Hardening, TablesOfAddressesAreReadOnlyOnceResolved) {
  EXPECT_THAT(read("-l"), HasSubstr("GNU_RELRO"));
  EXPECT_THAT(read("-d"), HasSubstr("BIND_NOW"));
}

TEST_P(Hardening, TheStackIsNotExecutable) {
  EXPECT_THAT(read("-l"), ContainsRegex("GNU_STACK .* RW "));
  EXPECT_THAT(read("-l"), Not(ContainsRegex(" RWE ")));
}

TEST_P(Hardening, StacksAreWatched) {
  EXPECT_THAT(read("--dyn-syms"), HasSubstr("__stack_chk_fail"));
  EXPECT_THAT(compilers(), Not(IsEmpty()));
  EXPECT_THAT(compilers(), Each(HasSubstr("-fstack-protector-strong")));
}

TEST_P(Hardening, BigFramesAreTouchedPageByPage) {
  EXPECT_THAT(compilers(), Not(IsEmpty()));
  EXPECT_THAT(compilers(), Each(HasSubstr("-fstack-clash-protection")));
}

#ifdef __x86_64__
TEST_P(Hardening, PlacesForIndirectJumpsAreMarked) {
  EXPECT_THAT(compilers(), Not(IsEmpty()));
  EXPECT_THAT(compilers(), Each(HasSubstr("-fcf-protection=full")));
}
#endif

#if OPTIMISED
TEST_P(Hardening, TheCLibraryChecksItsBounds) {
  EXPECT_THAT(read("--dyn-syms"), AnyOf(HasSubstr("printf_chk"), HasSubstr("memcpy_chk")));
}
#endif

TEST_P(Hardening, NothingIsLookedUpInDirectoriesOfTheBuilder) {
  // The build tree uses absolute paths; a relative one would depend on the user's current directory.
  EXPECT_THAT(read("-d"), Not(ContainsRegex("R(UN)?PATH.*\\[[^/]")));
}

std::string name_of(const ::testing::TestParamInfo<const char *> &file) {
  std::string name(file.param);
  for (char &c : name)
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
  return name;
}

INSTANTIATE_TEST_SUITE_P(Programs, Hardening, ::testing::Values("bin/rdmd", "bin/minidba", "bin/rdmctl"), name_of);

constexpr const char *library_files[] = {"lib/libqxapi.so.3", "lib/libcs.so.1", "lib/libdba.so.1", "lib/librdm.so.1"};

INSTANTIATE_TEST_SUITE_P(Libraries, Hardening, ::testing::ValuesIn(library_files), name_of);

#ifdef __x86_64__
using HardeningOfExports = Hardening;

TEST_P(HardeningOfExports, BeginWithAMarkForIndirectCalls) {
  constexpr unsigned char mark[] = {0xf3, 0x0f, 0x1e, 0xfa};
  const std::unique_ptr<void, int (*)(void *)> library(::dlopen(file().c_str(), RTLD_NOW), ::dlclose);
  ASSERT_NE(library, nullptr) << ::dlerror();
  std::istringstream symbols(output_of(NM " -D --defined-only --without-symbol-versions"));
  int procedures = 0;
  for (std::string address, kind, name; symbols >> address >> kind >> name;)
    if (kind == "T") {
      const void *procedure = ::dlsym(library.get(), name.c_str());
      ASSERT_NE(procedure, nullptr) << name;
      EXPECT_EQ(std::memcmp(procedure, mark, sizeof mark), 0) << name;
      ++procedures;
    }
  EXPECT_GT(procedures, 0);
}

INSTANTIATE_TEST_SUITE_P(Libraries, HardeningOfExports, ::testing::ValuesIn(library_files), name_of);
#endif

/// commands returns the compile commands of libraries and programs. Sources that are compiled together are named by a
/// file below the build directory. Definitions do not show in the debug information.
std::vector<std::string> commands() {
  const std::initializer_list<const char *> directories = {"qxapi/",   "libcs/",   "hashdb/", "dba/",
                                                           "catalog/", "service/", "hosts/",  "tools/"};
  std::vector<std::string> found;
  std::istringstream lines(support::read_file(support::in_build("compile_commands.json")));
  for (std::string line; std::getline(lines, line);)
    if (std::any_of(directories.begin(), directories.end(), [&line](const char *directory) {
          return line.find(" -c " + support::in_source(directory)) != std::string::npos ||
                 line.find(" -c " + support::in_build(directory)) != std::string::npos;
        }))
      found.push_back(line);
  return found;
}

TEST(HardeningOfSources, ContainersCheckTheirBounds) {
  EXPECT_THAT(commands(), Not(IsEmpty()));
  EXPECT_THAT(commands(), Each(HasSubstr(" -D_GLIBCXX_ASSERTIONS ")));
}

TEST(HardeningOfSources, FormatsThatAreNoLiteralsAreWarnedOf) {
  EXPECT_THAT(commands(), Each(HasSubstr(" -Wformat=2 ")));
}

#if OPTIMISED
TEST(HardeningOfSources, TheCLibraryKnowsAllSizesThatTheCompilerDoes) {
  EXPECT_THAT(commands(), Each(HasSubstr(" -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 ")));
}
#endif

}  // namespace
