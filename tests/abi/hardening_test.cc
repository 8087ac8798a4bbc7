/// What a compiler and a linker can do against the exploitation of a mistake was done for every program and library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <memory>
#include <string>

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

class Hardening : public ::testing::TestWithParam<const char *> {
 protected:
  /// read returns what readelf prints about the file.
  static std::string read(const std::string &options) {
    const std::string command = std::string(READELF) + " -W " + options + " " BINARY_DIR "/" + GetParam();
    // NOLINTNEXTLINE(cert-env33-c): the command is the build's own tool
    const std::unique_ptr<FILE, int (*)(FILE *)> pipe(::popen(command.c_str(), "r"), ::pclose);
    std::string output;
    char block[4096];
    for (size_t n = 0; pipe && (n = std::fread(block, 1, sizeof block, pipe.get())) > 0;) output.append(block, n);
    return output;
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

TEST_P(Hardening, StacksAreWatched) { EXPECT_THAT(read("--dyn-syms"), HasSubstr("__stack_chk_fail")); }

TEST_P(Hardening, NothingIsLookedUpInFoldersOfTheBuilder) {
  // The build tree itself finds its libraries by an absolute path, never by one relative to where a user stands.
  EXPECT_THAT(read("-d"), Not(ContainsRegex("R(UN)?PATH.*\\[[^/]")));
}

INSTANTIATE_TEST_SUITE_P(Files, Hardening,
                         ::testing::Values("bin/rdmd", "bin/minidba", "lib/libqxapi.so.3", "lib/libcs.so.1",
                                           "lib/libdba.so.1", "lib/librdm.so.1"),
                         [](const auto &file) {
                           std::string name(file.param);
                           for (char &c : name)
                             if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
                           return name;
                         });

}  // namespace
