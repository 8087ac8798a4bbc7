// SPDX-License-Identifier: MIT
#include "tools/rdmgather/document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "catalog/os/error.h"
#include "support/directories.h"
#include "support/files.h"
#include "tools/rdmgather/child.h"
#include "tools/rdmgather/ordered_work.h"

using namespace rdm;
using namespace rdm::gather;

namespace {

std::string reason_of(const std::string &file, const std::string &root) {
  try {
    const Document document({"name", file, {}}, root);
    return "";
  } catch (const catalog::Failure &failure) {
    return failure.what();
  }
}

std::vector<std::string> paths_in(const std::string &directory) {
  std::vector<std::string> paths;
  for (const Entry &entry : list_documents(directory, {}).documents) paths.push_back(entry.path);
  return paths;
}

TEST(GatheredDocument, OneThatChangesBetweenListingAndReadingIsRefused) {
  const support::TemporaryDirectory directory, elsewhere;
  const std::string root = std::filesystem::canonical(directory.path());
  EXPECT_EQ(reason_of(root + "/none", root), "open: No such file or directory");
  ::mkfifo((root + "/fifo").c_str(), 0600);
  EXPECT_EQ(reason_of(root + "/fifo", root), "no longer a regular file");
  EXPECT_EQ(reason_of(root, "/"), "no longer a regular file");
  std::filesystem::create_symlink("/etc/passwd", root + "/link");
  EXPECT_EQ(reason_of(root + "/link", root), "open: Too many levels of symbolic links");
  const std::string outside = elsewhere.write("file", "x");
  std::filesystem::create_directory_symlink(elsewhere.path(), root + "/moved");
  EXPECT_EQ(reason_of(root + "/moved/file", root), "it is no longer within the directory");
  EXPECT_EQ(reason_of("/proc/" + std::to_string(::getpid()) + "/mem", "/proc"), "read: Input/output error");
  // The size of this file is 0 although it has bytes, like that of one that grows.
  EXPECT_EQ(reason_of("/proc/version", "/proc"), "it has changed while it was read");
}

TEST(GatheredDocument, ARecentTimeIsNotRemembered) {
  const support::TemporaryDirectory directory;
  directory.write("new", "x");
  const Listing recent = list_documents(directory.path(), {});
  EXPECT_EQ(Document(recent.documents.at(0), recent.root).print(), (Print{1, 0, 0}));
  const Listing old = list_documents(support::in_source("examples/requests"), {});
  EXPECT_EQ(Document(old.documents.at(0), old.root).print(), old.documents.at(0).print);
}

TEST(Listing, FollowsLinksWithinTheDirectoryOnly) {
  const support::TemporaryDirectory directory, elsewhere;
  namespace fs = std::filesystem;
  fs::create_directories(directory.path("a/b"));
  directory.write("a/b/file", "x");
  directory.write(".hidden", "x");
  elsewhere.write("secret", "x");
  fs::create_symlink(directory.path("a/b/file"), directory.path("absolute"));
  fs::create_symlink("a/b/file", directory.path("relative"));
  fs::create_symlink("a", directory.path("again"));
  fs::create_symlink("../..", directory.path("a/b/loop"));
  fs::create_symlink("../../again", directory.path("a/b/long_loop"));
  fs::create_symlink(".", directory.path("self"));
  fs::create_symlink("ring", directory.path("ring"));
  fs::create_symlink("none", directory.path("dangling"));
  fs::create_symlink(elsewhere.path("secret"), directory.path("outside"));
  fs::create_symlink(elsewhere.path(), directory.path("outside_directory"));
  fs::create_symlink("/dev/zero", directory.path("device"));
  ::mkfifo(directory.path("fifo").c_str(), 0600);
  EXPECT_EQ(paths_in(directory.path()), (std::vector<std::string>{"a/b/file", "absolute", "again/b/file", "relative"}));
  EXPECT_TRUE(list_documents(directory.path(), {}).faults.empty());
}

TEST(Listing, LinksBetweenManyDirectoriesStayFew) {
  const support::TemporaryDirectory directory;
  constexpr int count = 12;
  const auto name = [](int i) { return "d" + std::to_string(i); };
  for (int i = 0; i < count; ++i) std::filesystem::create_directory(directory.path(name(i)));
  for (int i = 0; i < count; ++i) {
    directory.write(name(i) + "/file", "x");
    for (int j = 0; j < count; ++j)
      std::filesystem::create_symlink("../" + name(j), directory.path(name(i) + "/" + name(j)));
  }
  EXPECT_EQ(paths_in(directory.path()).size(), size_t{count + count * (count - 1)});
}

TEST(OrderedWork, EndsBeforeAllItemsAreDone) {
  const auto make = [] { return [](size_t item) { return item; }; };
  OrderedWork<size_t> work(1'000'000, 3, make);
  for (size_t item = 0; item < 5000; ++item) ASSERT_EQ(work.next(), item);
}

TEST(OrderedWork, StartsNoThreadIfAProcedureCannotBeMade) {
  const auto make = []() -> OrderedWork<int>::Procedure { throw catalog::Failure("none"); };
  EXPECT_THROW(OrderedWork<int>(10, 2, make), catalog::Failure);
}

TEST(Listing, IsWithinComparesWholeNames) {
  EXPECT_TRUE(is_within("/a", "/a/b"));
  EXPECT_TRUE(is_within("/", "/b"));
  for (const char *file : {"/a", "/ab/c", "/", "", "/b/a/c"}) EXPECT_FALSE(is_within("/a", file)) << file;
}

std::optional<std::string> output(std::vector<std::string> words) {
  const HostFileGuard input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  return output_of(std::move(words), input.get(), {std::chrono::seconds(60), 10});
}

TEST(ChildOutput, IsThatOfAProgramThatSucceeds) {
  EXPECT_EQ(output({"echo", "a  $b"}), "a  $b\n");
  EXPECT_EQ(output({"true"}), "");
  EXPECT_EQ(output({"false"}), std::nullopt);
  EXPECT_EQ(output({"no-program-of-this-name"}), std::nullopt);
  EXPECT_EQ(output({"yes", "no"}), "no\nno\nno\nn");
}

TEST(ChildOutput, WaitsNoLongerThanItsTime) {
  const HostFileGuard input(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  const Limits limits{std::chrono::milliseconds(50), 10};
  const auto start = std::chrono::steady_clock::now();
  for (const char *command : {"sleep 300", "exec >&-; sleep 300", "sleep 300 & echo x"})
    EXPECT_EQ(output_of({"/bin/sh", "-c", command}, input.get(), limits), std::nullopt) << command;
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(100));
}

}  // namespace
