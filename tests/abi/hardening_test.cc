/// What a compiler and a linker can do against the exploitation of a mistake was done for every program and library.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
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

  /// compilers returns how every compilation of our code in the file was called, as its debug information tells. The
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

TEST_P(Hardening, StacksAreWatched) { EXPECT_THAT(read("--dyn-syms"), HasSubstr("__stack_chk_fail")); }

TEST_P(Hardening, BigFramesAreTouchedPageByPage) {
  EXPECT_THAT(compilers(), Not(IsEmpty()));
  EXPECT_THAT(compilers(), Each(HasSubstr("-fstack-clash-protection")));
}

#ifdef __x86_64__
TEST_P(Hardening, IndirectJumpsLandOnMarkedPlaces) {
  EXPECT_THAT(compilers(), Not(IsEmpty()));
  EXPECT_THAT(compilers(), Each(HasSubstr("-fcf-protection=full")));
}
#endif

#if OPTIMISED
TEST_P(Hardening, TheCLibraryChecksItsBounds) {
  EXPECT_THAT(read("--dyn-syms"), AnyOf(HasSubstr("printf_chk"), HasSubstr("memcpy_chk")));
}
#endif

TEST_P(Hardening, NothingIsLookedUpInFoldersOfTheBuilder) {
  // The build tree itself finds its libraries by an absolute path, never by one relative to where a user stands.
  EXPECT_THAT(read("-d"), Not(ContainsRegex("R(UN)?PATH.*\\[[^/]")));
}

INSTANTIATE_TEST_SUITE_P(Files, Hardening,
                         ::testing::Values("bin/rdmd", "bin/minidba", "bin/rdmctl", "lib/libqxapi.so.3",
                                           "lib/libcs.so.1", "lib/libdba.so.1", "lib/librdm.so.1"),
                         [](const auto &file) {
                           std::string name(file.param);
                           for (char &c : name)
                             if (std::isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
                           return name;
                         });

}  // namespace
