// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/directories.h"
#include "support/files.h"
#include "support/process.h"
#include "tools/rdmgather/state.h"

using namespace rdm;

namespace {

using support::Finished;
using support::read_file;
using testing::HasSubstr;

const std::string program = support::in_build("bin/rdmgather");

/// Gathered is a directory of documents, and a state and a list of deletions beside it.
class Gathered : public testing::Test {
 protected:
  Gathered() { std::filesystem::create_directory(files_.path("site")); }

  /// write writes a document with the time Sun, 01 Nov 2026 12:00:00 GMT.
  void write(const std::string &name, const std::string &text) const {
    const std::string path = files_.write("site/" + name, text);
    const timespec time{1793534400, 0}, times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  }
  std::vector<std::string> words(const std::vector<std::string> &options) const {
    std::vector<std::string> all{program, "--base-url", "http://h/x", files_.path("site")};
    all.insert(all.end(), options.begin(), options.end());
    return all;
  }
  Finished run(const std::vector<std::string> &options = {}) const { return support::run(words(options)); }
  Finished run_on() const { return run(on_); }
  std::string deletions() const { return read_file(files_.path("deletions")); }

  static std::string described(const std::string &url, const std::string &title, const std::string &attributes) {
    return "@DOCUMENT { http://h/x/" + url + "\ntitle{" + std::to_string(title.size()) + "}:\t" + title +
           "\nlast-modified{29}:\tSun, 01 Nov 2026 12:00:00 GMT\n" + attributes + "}\n";
  }

  const support::TemporaryDirectory files_;
  const std::vector<std::string> on_{"--state", files_.path("state"), "--deletions", files_.path("deletions")};
};

const std::string hello = "Hello there\nGeneral text.\n";
const std::string hello_attributes =
    "content-length{2}:\t26\ncontent-type{10}:\ttext/plain\nmd5{32}:\t43a89dfe987fa0008d18025c1312872d\n"
    "description{13}:\tGeneral text.\n";

TEST_F(Gathered, EveryDocumentIsDescribed) {
  write("b c.txt", hello);
  write("a.html", "<html><head><title>T</title><meta name=author content=Ada></head><body><p>Body</p></body></html>");
  write("nul", std::string("\0\1\2\3", 4));
  const Finished finished = run();
  EXPECT_EQ(finished.errors, "");
  EXPECT_EQ(finished.status, 0);
  EXPECT_EQ(finished.out,
            "@DOCUMENT { http://h/x/a.html\ntitle{1}:\tT\nauthor{3}:\tAda\n"
            "last-modified{29}:\tSun, 01 Nov 2026 12:00:00 GMT\ncontent-length{2}:\t96\ncontent-type{9}:\ttext/html\n"
            "md5{32}:\tcc46fdaefd9f6c25ff80dee1d9794a50\ndescription{4}:\tBody\n}\n" +
                described("b%20c.txt", "Hello there", hello_attributes) +
                described("nul", "nul",
                          "content-length{1}:\t4\ncontent-type{24}:\tapplication/octet-stream\n"
                          "md5{32}:\t37b59afd592725f9305e484a5d7f5168\n"));
}

TEST_F(Gathered, TheOutputDoesNotDependOnTheNumberOfJobs) {
  for (int i = 0; i < 1200; ++i) write("file" + std::to_string(i), "text " + std::to_string(i) + "\n");
  const Finished one = run({"--jobs", "1"}), many = run({"--jobs", "7"});
  EXPECT_EQ(one.status, 0);
  EXPECT_THAT(one.out, HasSubstr("@DOCUMENT { http://h/x/file1199\n"));
  EXPECT_EQ(one.out, many.out);
}

TEST_F(Gathered, AStateLeavesOutWhatHasNotChanged) {
  write("a", hello);
  write("b", hello);
  EXPECT_EQ(run_on().out,
            described("a", "Hello there", hello_attributes) + described("b", "Hello there", hello_attributes));
  EXPECT_EQ(deletions(), "");
  std::filesystem::last_write_time(files_.path("site/a"), std::filesystem::file_time_type::clock::now());
  const Finished same = run_on();
  EXPECT_EQ(same.out, "");
  EXPECT_EQ(same.status, 0);
  write("b", "x\n");
  std::filesystem::remove(files_.path("site/a"));
  const Finished changed = run_on();
  EXPECT_THAT(changed.out, HasSubstr("@DOCUMENT { http://h/x/b\ntitle{1}:\tx\n"));
  EXPECT_EQ(deletions(), "http://h/x/a\n");
  EXPECT_EQ(run_on().out, "");
  EXPECT_EQ(deletions(), "");
}

TEST_F(Gathered, AFileOfTheSameSizeAndTimesIsNotRead) {
  write("a", hello);
  const auto print = gather::list_documents(files_.path("site"), {}).documents.at(0).print;
  gather::State state(files_.path("state"), "http://h/x/");
  state.remember("a", {print, std::string(32, '0')});
  state.commit();
  EXPECT_EQ(run_on().out, "");
}

TEST_F(Gathered, ACatalogTakesDescriptionsAndDeletions) {
  write("a", hello);
  write("b", hello);
  const std::string database = files_.path("test.db");
  const auto minidba = [&](std::vector<std::string> verb, const std::string &input) {
    verb.insert(verb.begin(), {support::in_build("bin/minidba"), "-d", database});
    return support::run(verb, input);
  };
  EXPECT_EQ(minidba({"update"}, run_on().out).status, 0);
  std::filesystem::remove(files_.path("site/a"));
  run_on();
  EXPECT_EQ(minidba({"delete", "-"}, deletions()).out, "1\n");
  EXPECT_THAT(minidba({"get", "http://h/x/b"}, "").out, HasSubstr("Hello there"));
}

TEST_F(Gathered, WhatCannotBeReadKeepsItsDescription) {
  write("a", hello);
  std::filesystem::create_directory(files_.path("site/sub"));
  write("sub/b", hello);
  run_on();
  write("a", "changed\n");
  ::chmod(files_.path("site/a").c_str(), 0);
  ::chmod(files_.path("site/sub").c_str(), 0);
  const Finished refused = support::run(support::as_owner(words(on_)));
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.errors,
            "rdmgather: cannot read sub: Permission denied\n"
            "rdmgather: cannot read a: open: Permission denied\n"
            "rdmgather: 2 not read, 0 described, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(deletions(), "");
  std::vector<std::string> json = words(on_);
  json.emplace_back("--json");
  EXPECT_EQ(support::run(support::as_owner(json)).errors,
            "{\"file\":\"sub\",\"reason\":\"Permission denied\"}\n"
            "{\"file\":\"a\",\"reason\":\"open: Permission denied\"}\n"
            "{\"described\":0,\"unchanged\":0,\"deleted\":0,\"failed\":2}\n");
  ::chmod(files_.path("site/a").c_str(), 0600);
  ::chmod(files_.path("site/sub").c_str(), 0700);
  EXPECT_THAT(run_on().out, HasSubstr("title{7}:\tchanged\n"));
}

TEST_F(Gathered, WithoutAFileDeletionsAreReported) {
  write("a", hello);
  write("b", hello);
  run({"--state", files_.path("state")});
  std::filesystem::remove(files_.path("site/a"));
  EXPECT_EQ(run({"--state", files_.path("state")}).errors, "rdmgather: deleted: http://h/x/a\n");
  write("a", hello);
  run({"--state", files_.path("state")});
  std::filesystem::remove(files_.path("site/a"));
  EXPECT_EQ(run({"--state", files_.path("state"), "--json"}).errors,
            "{\"deleted\":\"http://h/x/a\"}\n{\"described\":0,\"unchanged\":1,\"deleted\":1,\"failed\":0}\n");
}

TEST_F(Gathered, ADirectoryWithoutDocumentsHasNotLostThemUnlessItIsBelieved) {
  write("a", hello);
  write("b", hello);
  run_on();
  std::filesystem::remove(files_.path("site/b"));
  run_on();
  std::filesystem::remove(files_.path("site/a"));
  const std::string state = read_file(files_.path("state"));
  const Finished refused = run_on();
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.errors, "rdmgather: no document is left in " + files_.path("site") +
                                ", of 1 in the last run: nothing is changed; if they are gone indeed, say --believe\n");
  EXPECT_EQ(deletions(), "http://h/x/b\n");
  EXPECT_EQ(read_file(files_.path("state")), state);
  std::vector<std::string> believing = on_;
  believing.emplace_back("--believe");
  EXPECT_EQ(run(believing).status, 0);
  EXPECT_EQ(deletions(), "http://h/x/a\n");
  EXPECT_EQ(run_on().status, 0);
  EXPECT_EQ(deletions(), "");
}

TEST_F(Gathered, ADirectoryWhoseKnownDocumentsCannotBeReadHasNotLostThem) {
  std::filesystem::create_directory(files_.path("site/sub"));
  write("sub/a", hello);
  run_on();
  ::chmod(files_.path("site/sub").c_str(), 0);
  const Finished finished = support::run(support::as_owner(words(on_)));
  ::chmod(files_.path("site/sub").c_str(), 0700);
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.errors,
            "rdmgather: cannot read sub: Permission denied\n"
            "rdmgather: 1 not read, 0 described, 0 unchanged, 0 deleted\n");
  EXPECT_EQ(deletions(), "");
  EXPECT_EQ(run_on().out, "");
}

TEST_F(Gathered, ItsOwnFilesAreNoDocuments) {
  const std::string site = files_.path("site");
  const std::string command = program + " --base-url http://h/ --state " + site + "/state --deletions " + site +
                              "/deletions " + site + " >" + site + "/out";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(support::run({"/bin/sh", "-c", command}).status, 0);
    EXPECT_EQ(read_file(site + "/out"), "");
  }
}

TEST_F(Gathered, AnErrorLeavesTheStateAsItWas) {
  write("a", hello);
  const std::string state = files_.path("state");
  const Finished full =
      support::run({"/bin/sh", "-c",
                    program + " --base-url http://h/x --state " + state + " " + files_.path("site") + " >/dev/full"});
  EXPECT_EQ(full.status, 2);
  EXPECT_EQ(full.errors, "rdmgather: cannot write to standard output: No space left on device\n");
  EXPECT_FALSE(support::file_exists(state));
  run_on();
  const std::string bytes = read_file(state);
  const std::string advice = ": remove it to describe all documents again\n";
  for (const std::string &damaged :
       {std::string(), bytes.substr(0, 60), "x" + bytes, bytes + "x", std::string(100, '\0')}) {
    support::write_file(state, damaged);
    const Finished finished = run_on();
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.errors, "rdmgather: the state is damaged: " + state + advice);
    EXPECT_EQ(read_file(state), damaged);
  }
  support::write_file(state, bytes);
  EXPECT_EQ(support::run({program, "--base-url", "http://h/y", "--state", state, files_.path("site")}).errors,
            "rdmgather: the state is of another base URL: " + state + "\n");
}

TEST_F(Gathered, WithoutTheDatabaseOfTypesNothingIsDone) {
  write("a", hello);
  std::vector<std::string> all = words(on_);
  all.insert(all.begin(), {"/usr/bin/env", "MAGIC=/nonexistent"});
  const Finished finished = support::run(all);
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_THAT(finished.errors, testing::StartsWith("rdmgather: cannot load the database of libmagic: "));
  EXPECT_FALSE(support::file_exists(files_.path("state")));
}

TEST_F(Gathered, AFileMayHaveAnyTime) {
  write("a", hello);
  for (const time_t seconds : {INT64_C(-10'000'000'000), INT64_C(9'000'000'000'000), INT64_C(99'999'999'999'999'999)}) {
    const timespec time{seconds, 0}, times[] = {time, time};
    ASSERT_EQ(::utimensat(AT_FDCWD, files_.path("site/a").c_str(), times, 0), 0);
    const Finished finished = run();
    EXPECT_EQ(finished.status, 0) << finished.errors;
    EXPECT_THAT(finished.out, testing::EndsWith(hello_attributes + "}\n"));
  }
}

TEST_F(Gathered, AUrlThatIsTooLongIsRejected) {
  const std::string name(250, ' ');
  std::string path = "site";
  for (int depth = 0; depth < 6; ++depth) {
    path += "/" + name;
    std::filesystem::create_directory(files_.path(path));
  }
  files_.write(path + "/a", hello);
  const Finished finished = run({"-q"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, testing::EndsWith("/a: the URL has more than 4095 bytes\n"));
}

TEST_F(Gathered, PdfIsReadByPopplerIfInstalled) {
  write("a.pdf", "%PDF-1.4\n");
  const auto run_with = [&](const std::string &path) {
    std::vector<std::string> all = words({});
    all.insert(all.begin(), {"/usr/bin/env", "PATH=" + path});
    return support::run(all).out;
  };
  const std::string name = "title{5}:\ta.pdf\n";
  EXPECT_THAT(run_with("/nonexistent"), HasSubstr(name));
  std::filesystem::create_directory(files_.path("bin"));
  const auto script = [&](const std::string &tool, const std::string &text) {
    ::chmod(files_.write("bin/" + tool, "#!/bin/sh\n" + text).c_str(), 0700);
  };
  script("pdfinfo", "read line <\"$3\"; printf 'Title:   T of %s\\nAuthor:  Ada\\nPages: 1\\n' \"$line\"");
  script("pdftotext", "echo some; echo text");
  const std::string found = run_with(files_.path("bin"));
  EXPECT_THAT(found, HasSubstr("title{13}:\tT of %PDF-1.4\nauthor{3}:\tAda\n"));
  EXPECT_THAT(found, HasSubstr("description{9}:\tsome text\n"));
  script("pdfinfo", "exit 1");
  EXPECT_THAT(run_with(files_.path("bin")), HasSubstr(name));
}

TEST(GatherUsage, ReportsMistakes) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"d"}, "--base-url is required; see \"rdmgather --help\""},
      {{"--base-url", "http://h"}, "DIRECTORY is required; see \"rdmgather --help\""},
      {{"--base-url", "h", "d"}, "--base-url: not a URL with a scheme and \"://\"; see \"rdmgather --help\""},
      {{"--base-url", "http://h", "d", "--deletions", "f"}, "--deletions requires --state; see \"rdmgather --help\""},
      {{"--base-url", "http://h", "/x", "--state", "/x/a", "--deletions", "/x/a"},
       "--state and --deletions are the same file: /x/a"},
      {{"--base-url", "http://h", ""}, "DIRECTORY: must not be empty; see \"rdmgather --help\""},
      {{"--base-url", "http://h", "/nonexistent"}, "cannot read /nonexistent: No such file or directory"},
      {{"--base-url", "http://h", "/", "--state", "/dev/null"}, "not a regular file: /dev/null"},
  };
  for (auto [words, text] : rows) {
    words.insert(words.begin(), program);
    const Finished finished = support::run(words);
    EXPECT_EQ(finished.status, 2) << text;
    EXPECT_EQ(finished.out, "") << text;
    EXPECT_EQ(finished.errors, "rdmgather: " + text + "\n");
  }
}

TEST(GatherUsage, HelpNamesTheManualPage) {
  EXPECT_THAT(support::run({program, "--help"}).out, HasSubstr("rdmgather(1)"));
  EXPECT_THAT(support::run({program, "completion", "bash"}).out, HasSubstr("--base-url"));
}

}  // namespace
