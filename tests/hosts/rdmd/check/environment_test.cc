// SPDX-License-Identifier: MIT
#include "hosts/rdmd/check/environment.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "hosts/rdmd/listen_address.h"
#include "hosts/rdmd/tls_support.h"
#include "support/files.h"
#include "support/process.h"

using namespace rdm;

/// getaddrinfo resolves "partly.test" to one address of this machine and one of another.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the C library's names are reserved
extern "C" int getaddrinfo(const char *node, const char *service, const addrinfo *hints, addrinfo **found) {
  const auto real = reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  if (std::string_view(node) != "partly.test") return real(node, service, hints, found);
  const int error = real("127.0.0.1", service, hints, found);
  return error != 0 ? error : real("198.51.100.1", service, hints, &(*found)->ai_next);
}

namespace {

std::string text_of(const check::Findings &findings) {
  std::string text;
  for (const check::Finding &finding : findings) text += check::describe(finding) + "\n";
  return text;
}

std::string listen(const std::string &address) {
  check::Findings findings;
  check::Report report("rdmd", findings);
  check::check_listen(address, report);
  return text_of(findings);
}

TEST(CheckListen, TakesAddressesOfThisMachine) {
  for (const char *address : {"127.0.0.1:0", "localhost:0", "0.0.0.0:0", "127.0.0.1:65535"})
    EXPECT_EQ(listen(address), "") << address;
}

TEST(CheckListen, ReportsUnusableAddresses) {
  const std::string refused = "rdmd: error: cannot listen on ";
  EXPECT_EQ(listen("198.51.100.1:8380"), refused + "198.51.100.1:8380: Cannot assign requested address\n");
  EXPECT_EQ(listen("127.0.0.1"), refused + "127.0.0.1: HOST:PORT is required\n");
  const std::string label = std::string(64, 'x') + ".test:8380";
  EXPECT_EQ(listen(label).find(refused + label + ": "), 0U) << listen(label);
  EXPECT_EQ(listen("partly.test:8380"),
            "rdmd: warning: cannot listen on 198.51.100.1:8380: Cannot assign requested address\n");
}

TEST(CheckListen, ChecksUnixSockets) {
  const support::TemporaryDirectory directory;
  const std::string path = "unix:" + directory.path("socket"), file = directory.write("file", ""),
                    refused = "rdmd: error: cannot listen on ";
  EXPECT_EQ(listen(path), "");
  EXPECT_EQ(listen("unix:/none/socket"), refused + "unix:/none/socket: No such file or directory\n");
  EXPECT_EQ(listen("unix:" + file), refused + "unix:" + file +
                                        ": Address already in use: the file is not a socket; remove it or choose "
                                        "another path\n");
}

TEST(CheckTls, ReportsFilesThatCannotBeUsedAndWarns) {
  const support::TemporaryDirectory directory;
  const std::string certificate = directory.path("cert.pem"), key = directory.path("key.pem"),
                    none = directory.path("none");
  const auto report_of = [&](const std::string &key_file) {
    check::Findings findings;
    check::Report report("rdmd", findings);
    check::check_tls(certificate, key_file, report);
    return text_of(findings);
  };
  support::write_certificate(certificate, key);
  EXPECT_EQ(report_of(key), "");
  EXPECT_EQ(report_of(none), "rdmd: error: TLS key " + none + ": No such file or directory\n");
  support::write_certificate(certificate, key, {.begin = -7200, .end = -3600});
  const std::string warning = "rdmd: warning: TLS certificate " + certificate + ": expired on ";
  EXPECT_EQ(report_of(key).substr(0, warning.size()), warning);
}

/// The server may be running while its configuration is checked.
TEST(CheckListen, APortInUseIsNoError) {
  const rdmd::BoundSockets bound = rdmd::bind_listen("127.0.0.1:0");
  ASSERT_EQ(::listen(bound.sockets.front().get(), 1), 0);
  EXPECT_EQ(listen(rdmd::local_address(bound.sockets.front().get()).text()), "");
}

class CheckLog : public ::testing::Test {
 protected:
  std::string found(const std::string &name) {
    check::Findings findings;
    check::Report report("conf", findings);
    check::check_log({"logfile", directory_.path(name), 3}, report);
    std::string text = text_of(findings);
    for (size_t at = 0; (at = text.find(directory_.path() + "/", at)) != std::string::npos;)
      text.replace(at, directory_.path().size(), "@");
    return text;
  }
  void link(const std::string &target, const char *name) {
    ASSERT_EQ(::symlink(target.c_str(), directory_.path(name).c_str()), 0);
  }

  const std::string no_ = "conf:3: error: \"logfile\" ";
  support::TemporaryDirectory directory_;
};

TEST_F(CheckLog, IsAFileThatIsThereOrCanBeMade) {
  const std::string path = directory_.write("log", "a line\n");
  EXPECT_EQ(found("log"), "");
  EXPECT_EQ(support::read_file(path), "a line\n");
  EXPECT_EQ(found("fresh"), "");
  EXPECT_FALSE(support::file_exists(directory_.path("fresh")));
}

TEST_F(CheckLog, IsInADirectoryThatIsThere) {
  EXPECT_EQ(found("none/log"), no_ + "cannot be written: @/none: No such file or directory\n");
  directory_.write("file", "");
  EXPECT_EQ(found("file/log"), no_ + "cannot be written: @/file/log: Not a directory\n");
  std::filesystem::create_directory(directory_.path("directory"));
  EXPECT_EQ(found("directory"), no_ + "is a directory: @/directory\n");
  const std::string name(256, 'x');
  EXPECT_EQ(found(name), no_ + "cannot be written: @/" + name + ": File name too long\n");
}

/// The permissions of a directory do not show that it accepts no files: the check passed, and the start failed.
TEST_F(CheckLog, IsInADirectoryThatTakesFiles) {
  check::Findings findings;
  check::Report report("conf", findings);
  check::check_log({"--error-log", "/proc/x", 0}, report);
  const std::string superuser = "/proc/x: No such file or directory", others = "/proc: Permission denied";
  EXPECT_EQ(text_of(findings),
            "conf: error: \"--error-log\" cannot be written: " + (::geteuid() == 0 ? superuser : others) + "\n");
}

TEST(CheckTemporary, IsADirectoryThatTakesFilesAndHasNoneMoreAfterwards) {
  const support::TemporaryDirectory directory;
  check::Findings findings;
  check::Report report("conf", findings);
  check::check_temporary({"tmpdir", directory.path(), 1}, report);
  EXPECT_EQ(text_of(findings), "");
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
  check::check_temporary({"tmpdir", "/proc", 2}, report);
  EXPECT_EQ(text_of(findings), "conf:2: error: \"tmpdir\" cannot be written: No such file or directory\n");
}

/// The check creates the file, or the target of a link, and removes it.
TEST_F(CheckLog, FilesCreatedByTheCheckAreRemoved) {
  link("there", "here");
  for (const char *name : {"fresh", "here"}) EXPECT_EQ(found(name), "") << name;
  for (const char *name : {"fresh", "there"}) EXPECT_FALSE(support::file_exists(directory_.path(name))) << name;
  EXPECT_TRUE(std::filesystem::is_symlink(directory_.path("here")));
  link(directory_.write("log", "a line\n"), "to-log");
  EXPECT_EQ(found("to-log"), "");
  EXPECT_EQ(support::read_file(directory_.path("log")), "a line\n");
}

/// For a dangling link the check looked at the directory of the link instead of that of its target.
TEST_F(CheckLog, ALinkIsFollowed) {
  link("there", "here");
  EXPECT_EQ(found("here"), "");
  link("none/log", "relative");
  EXPECT_EQ(found("relative"), no_ + "cannot be written: @/none: No such file or directory\n");
  link(directory_.path("none/log"), "absolute");
  EXPECT_EQ(found("absolute"), no_ + "cannot be written: @/none: No such file or directory\n");
  link("relative", "twice");
  EXPECT_EQ(found("twice"), no_ + "cannot be written: @/none: No such file or directory\n");
  link("loop", "loop");
  EXPECT_EQ(found("loop"), no_ + "cannot be written: @/loop: Too many levels of symbolic links\n");
}

/// open() for writing fails with ETXTBSY for a running program, whatever its permissions.
TEST_F(CheckLog, ARunningProgramIsRefused) {
  std::filesystem::copy_file("/bin/sleep", directory_.path("program"));
  const pid_t child = support::start({directory_.path("program"), "60"}, "/dev/null", directory_.path("out"),
                                     directory_.path("errors"));
  const std::string refused = no_ + "cannot be written: @/program: Text file busy\n";
  for (int i = 0; i < 6000 && found("program") != refused; ++i) ::usleep(10'000);
  EXPECT_EQ(found("program"), refused);
  ::kill(child, SIGKILL);
  support::wait_for(child);
}

/// A pipe is not opened: open() would block until it has a reader, or its reader would see the end of input.
TEST_F(CheckLog, MayBeAPipeOrADeviceButNoSocket) {
  ASSERT_EQ(::mkfifo(directory_.path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(found("pipe"), "");
  link("/dev/null", "device");
  EXPECT_EQ(found("device"), "");
  ASSERT_EQ(::mknod(directory_.path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  EXPECT_EQ(found("socket"), no_ + "cannot be written: @/socket: it is a socket\n");
}

}  // namespace
