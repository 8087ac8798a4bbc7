// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

#include "service/message.h"
#include "service/support/catalog.h"
#include "support/diagnostics.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

/// The results of tempnam() below.
struct CalledNames {
  int asked = 0;        // calls so far
  int refused = 0;      // the number of the call that fails, 0 for none
  std::string taken{};  // the first result, unless empty
};
CalledNames called_names;

}  // namespace

extern "C" char *tempnam(const char *dir, const char *pfx) {
  ++called_names.asked;
  if (called_names.asked == called_names.refused) return nullptr;
  if (called_names.asked == 1 && !called_names.taken.empty()) return ::strdup(called_names.taken.c_str());
  return reinterpret_cast<char *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "tempnam"))(dir, pfx);
}

namespace {

using support::Diagnostics;
using support::Exchange;
using support::soif;

/// An import with a script in place of minidba that records its arguments.
class Import : public support::HostTest {
 protected:
  void SetUp() override {
    called_names = CalledNames{};
    const char *path = std::getenv("PATH");
    old_path_ = path == nullptr ? "" : path;
    setenv("PATH", (directory_.path() + ":" + old_path_).c_str(), 1);
    setenv("TMPDIR", temporary_.path().c_str(), 1);
    command("case \"$verb\" in update) cat > " + directory_.path("body") +
            "; echo 3;; expire) echo 2;; index) echo 5;;"
            " unclassified) echo http://localhost/1;; esac");
    response_ = make_csio();
    body_ = make_csio();
  }
  void TearDown() override {
    setenv("PATH", old_path_.c_str(), 1);
    unsetenv("TMPDIR");
    response_.reset();
    body_.reset();
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path())) << "temporary files are left";
    support::HostTest::TearDown();
  }

  /// command writes a minidba that logs its arguments and then runs a script; its $verb is the last argument.
  void command(const std::string &script) {
    const std::string path = directory_.write("minidba", "#!/bin/sh\necho \"$*\" >> " + directory_.path("calls") +
                                                             "\nfor verb; do :; done\n" + script + "\n");
    chmod(path.c_str(), 0755);
  }

  int32_t import(const char *csid = "c", int32_t type = RDM_RD_RESPONSE) {
    const RdmHeaderPtr header = make_rdmhdr(type);
    header->csid = csid != nullptr ? host_strdup(csid) : nullptr;
    const int32_t result = rds_rd_response(header.get(), body_.get(), response_.get(), &x_.session, &x_.request);
    body_.reset();
    return result;
  }

  std::string answer() {
    std::string bytes(response_->length, '\0');
    csio_rewind(response_.get());
    csio_copy(response_.get(), bytes.data(), static_cast<int32_t>(bytes.size()));
    return bytes;
  }
  long fail_each_allocation(const std::string &body);
  std::string calls() { return support::read_file(directory_.path("calls")); }

  static std::string accepted(const std::string &text) {
    return soif("RDMHEADER", "-", {{"rdm-version", "1.0"}, {"rdm-type", "status-response"}}) + "\n\n\n\n" + text +
           "\n\n";
  }
  static std::string refused(const std::string &text) {
    return soif("RDMHEADER", "-",
                {{"rdm-version", "1.0"}, {"rdm-type", "status-response"}, {"rdm-error-message", text}}) +
           "\n\n\n\n" + text + "\n\n";
  }

  support::TemporaryDirectory directory_, temporary_;
  std::string database_ = directory_.path("catalog.db");
  support::Registry registry_{directory_, "csid=\"c\" catalog-database=\"" + database_ +
                                              "\"\ncsid=\"relative\" "
                                              "catalog-database=\"catalog\"\ncsid=\"bare\"\n"};
  std::string old_path_;
  CsioPtr response_, body_;
  Exchange x_{"POST", "/rdm/rd-response"};
};

TEST_F(Import, RunsTheFourCommandsInOrder) {
  append_text(body_.get(), "@DOCUMENT { -\n}\n");
  const Diagnostics diagnostics;
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(calls(), "-d " + database_ + " update\n-d " + database_ + " expire\n-d " + database_ + " -i " + database_ +
                         ".idx index\n-d " + database_ + " -i " + database_ + ".idx unclassified\n");
  EXPECT_EQ(answer(), accepted("Accepted 3 RDs from Unknown-Source"));
  EXPECT_EQ(support::read_file(directory_.path("body")), "@DOCUMENT { -\n}\n");
  EXPECT_EQ(support::read_file(directory_.path("unclassified")), "http://localhost/1\n");
  EXPECT_EQ(diagnostics.text(), "Expired 2 RDs.\nIndexed 5 RDs.\n");
  EXPECT_NE(x_.var("rdm-log-message").find("\"Accepted 3 RDs from Unknown-Source\" - -\n"), std::string::npos);
  EXPECT_EQ(response_->finished, 1);
}

TEST_F(Import, TakesABodyThatIsInAFileAlready) {
  const std::string text(50000, 'x');
  body_->max_memory = 32768;
  append_text(body_.get(), text.substr(0, 20000));
  append_text(body_.get(), text.substr(20000));
  ASSERT_NE(body_->filename, nullptr);
  EXPECT_EQ(import("c", RDM_RD_DELETE_RESPONSE), 0) << "imported like an update";
  EXPECT_EQ(support::read_file(directory_.path("body")), text);
}

TEST_F(Import, TakesEveryByteOfABodyThatGrewInItsFile) {
  std::string text;
  body_->max_memory = 4096;
  for (int i = 0; i < 3000; ++i) {
    append_text(body_.get(), "piece " + std::to_string(i) + "\n");
    text += "piece " + std::to_string(i) + "\n";
  }
  ASSERT_NE(body_->filename, nullptr);
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(support::read_file(directory_.path("body")), text);
}

TEST_F(Import, ABodyThatTheDiskDidNotTakeIsNotImported) {
  qxapi_host full = support::memory_host();
  full.write = [](host_fd, const void *, int32_t) { return 0; };
  qxapi_bind(&full);
  append_text(body_.get(), "@DOCUMENT { -\n}\n");
  const Diagnostics diagnostics;
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(answer(), refused("Failed to import RDs"));
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot save RDs to tmpfile?\n");
  EXPECT_FALSE(support::file_exists(directory_.path("calls")));
}

TEST_F(Import, AnEmptyBodyIsAnEmptyDelivery) {
  command("[ \"$verb\" != update ] || { cat > " + directory_.path("body") + "; echo 0; }");
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(support::read_file(directory_.path("body")), "");
  EXPECT_EQ(answer(), accepted("Accepted 0 RDs from Unknown-Source"));
}

TEST_F(Import, ResultsAreTheServersOwnFiles) {
  const std::string list = directory_.path("results");
  command("stat -c '%a %F' \"$TMPDIR\"/csrds* >> " + list + " 2>/dev/null; [ \"$verb\" != update ] || echo 7");
  const mode_t old = umask(022);
  EXPECT_EQ(import(), 0);
  umask(old);
  const std::string own = "600 regular empty file\n";
  EXPECT_EQ(support::read_file(list).substr(0, 3 * own.size()), own + own + own) << "one at a time";
  EXPECT_EQ(answer(), accepted("Accepted 7 RDs from Unknown-Source"));
}

TEST_F(Import, AResultIsNotWrittenToAnExistingFile) {
  append_text(body_.get(), "@DOCUMENT { -\n}\n");
  called_names.taken = directory_.path("link");
  std::filesystem::create_symlink(directory_.write("victim", "kept"), called_names.taken);
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(answer(), accepted("Accepted 3 RDs from Unknown-Source"));
  EXPECT_EQ(support::read_file(directory_.path("victim")), "kept");
  EXPECT_TRUE(std::filesystem::is_symlink(called_names.taken));
}

TEST_F(Import, WithoutANameForItsBodyOrItsFirstResultNothingRuns) {
  for (const bool has_body : {true, false}) {
    body_ = make_csio();
    if (has_body) append_text(body_.get(), "@DOCUMENT { -\n}\n");
    called_names = CalledNames{.refused = 1};
    const Diagnostics diagnostics;
    EXPECT_EQ(import(), 0);
    EXPECT_EQ(answer(), refused("Failed to import RDs"));
    EXPECT_EQ(diagnostics.text(),
              has_body ? "ERROR: Cannot create tmpfile?\n" : "ERROR: Cannot save RDs to tmpfile?\n");
    EXPECT_EQ(x_.var("rdm-log-message"), "");
    EXPECT_FALSE(support::file_exists(directory_.path("calls")));
  }
}

TEST_F(Import, AStepWithoutANameForItsResultIsLeftOut) {
  const std::string update = "-d " + database_ + " update\n", expire = "-d " + database_ + " expire\n",
                    index = "-d " + database_ + " -i " + database_ + ".idx index\n",
                    unclassified = "-d " + database_ + " -i " + database_ + ".idx unclassified\n";
  const struct {
    int refused;
    std::string calls, log;
  } rows[] = {{2, update + index + unclassified, "Indexed 5 RDs.\n"},
              {3, update + expire + unclassified, "Expired 2 RDs.\n"}};
  for (const auto &row : rows) {
    std::filesystem::remove(directory_.path("calls"));
    body_ = make_csio();
    append_text(body_.get(), "@DOCUMENT { -\n}\n");
    called_names = CalledNames{.refused = row.refused};
    const Diagnostics diagnostics;
    EXPECT_EQ(import(), 0);
    EXPECT_EQ(calls(), row.calls);
    EXPECT_EQ(diagnostics.text(), row.log);
    EXPECT_EQ(answer(), accepted("Accepted 3 RDs from Unknown-Source"));
  }
}

TEST_F(Import, ReadsOneNumberWhateverTheStatus) {
  const std::pair<std::string, std::string> rows[] = {{"echo 4; exit 3", "4"},
                                                      {"printf '\\n 4'", "4"},
                                                      {"echo 4 of 5", "4"},
                                                      {"echo 4x", "4"},
                                                      {"echo -4", "-4"},
                                                      {"echo x4", "0"},
                                                      {"echo out of order; exit 3", "0"},
                                                      {"exit 0", "0"},
                                                      {"echo 4; kill -KILL $$", "4"},
                                                      {"echo 4; rm \"$TMPDIR\"/csrds*", "0"}};
  testing::internal::CaptureStderr();
  for (const auto &[script, number] : rows) {
    body_ = make_csio();
    command("[ \"$verb\" != unclassified ] || exit 0\n" + script);
    const Diagnostics diagnostics;
    EXPECT_EQ(import(), 0);
    EXPECT_EQ(answer(), accepted("Accepted " + number + " RDs from Unknown-Source")) << script;
    const std::string expired = number == "4" ? "Expired 4 RDs.\n" : "";
    EXPECT_EQ(diagnostics.text(), expired + "Indexed " + number + " RDs.\n") << script;
  }
  testing::internal::GetCapturedStderr();
}

/// fail_each_allocation imports a body repeatedly while one allocation after the other fails. Returns their number.
long Import::fail_each_allocation(const std::string &body) {
  long failing = 0;
  do {
    body_ = make_csio();
    append_text(body_.get(), body);
    csio_convert2file(body_.get());
    const RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
    header->csid = host_strdup("c");
    const CsioPtr response = make_csio();
    host.allocations = 0;
    host.fail_allocation = ++failing;
    EXPECT_EQ(rds_rd_response(header.get(), body_.get(), response.get(), &x_.session, &x_.request), 0);
    host.fail_allocation = 0;
    body_.reset();
  } while (host.allocations >= failing);
  return failing - 1;
}

// Regression: the file of an empty body was left behind when memory for its name failed.
TEST_F(Import, AnEmptyBodyLeavesNoFileWhenMemoryFails) { EXPECT_GE(fail_each_allocation(""), 10); }

TEST_F(Import, NamesItsSource) {
  const std::pair<std::vector<std::pair<const char *, const char *>>, const char *> rows[] = {
      {{{"user-agent", "harvester/1.0"}}, "harvester/1.0"},
      {{{"from", "op@localhost"}, {"user-agent", "harvester/1.0"}}, "op@localhost"},
      {{{"from", ""}, {"user-agent", "harvester/1.0"}}, "(empty)"},
      {{{"user-agent", ""}}, "(empty)"},
      {{}, "Unknown-Source"},
      {{{"from", "%s%n"}}, "%s%n"},
      {{{"from", "a\nb"}}, "a\nb"},
  };
  for (const auto &[headers, source] : rows) {
    Exchange x("POST", "/rdm/rd-response");
    for (const auto &[name, value] : headers) x.header(name, value);
    const RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
    header->csid = host_strdup("c");
    const CsioPtr body = make_csio();
    EXPECT_EQ(rds_rd_response(header.get(), body.get(), response_.get(), &x.session, &x.request), 0);
    EXPECT_EQ(answer(), accepted("Accepted 3 RDs from " + std::string(source)));
  }
}

// Regression: a sender with a newline in its name wrote its own lines into the transaction log.
TEST_F(Import, ASenderStartsNoLineOfTheTransactionLog) {
  x_.header("user-agent", "a\r\n192.0.2.1 - - [] \"forged\" - -\n");
  EXPECT_EQ(import(), 0);
  const std::string line = x_.var("rdm-log-message");
  EXPECT_EQ(line.find('\n'), line.size() - 1);
  EXPECT_NE(line.find("\"Accepted 3 RDs from a\\r\\n192.0.2.1 - - [] \"forged\" - -\\n\" - -\n"), std::string::npos)
      << line;
}

TEST_F(Import, ContinuesWithoutTheCommand) {
  setenv("PATH", "/nonexistent", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(import(), 0);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(answer(), accepted("Accepted 0 RDs from Unknown-Source"));
}

TEST_F(Import, ReplacesTheUnclassifiedList) {
  directory_.write("unclassified", "old");
  std::filesystem::create_hard_link(directory_.path("unclassified"), directory_.path("kept"));
  command("");
  EXPECT_EQ(import(), 0);
  EXPECT_EQ(support::read_file(directory_.path("unclassified")), "");
  EXPECT_EQ(support::read_file(directory_.path("kept")), "old") << "the new list is a file of its own";
}

TEST_F(Import, ListsNothingUnclassifiedForADatabaseWithoutADirectory) {
  EXPECT_EQ(import("relative"), 0);
  EXPECT_EQ(calls(),
            "-d catalog update\n-d catalog expire\n-d catalog -i "
            "catalog.idx index\n");
}

TEST_F(Import, NeedsADatabase) {
  const Diagnostics diagnostics;
  EXPECT_EQ(import("bare"), 0);
  EXPECT_EQ(answer(), refused("Failed to import RDs: RDS: No CSID?"));
  EXPECT_EQ(x_.var("rdm-log-message"), "");
  body_ = make_csio();
  EXPECT_EQ(import(nullptr), 0);
  EXPECT_EQ(answer(), refused("Failed to import RDs: RDS: No CSID?"));
  body_ = make_csio();
  EXPECT_EQ(import("a\nb"), 0);
  EXPECT_EQ(diagnostics.text(),
            "ERROR: Require 'catalog-database' for <CSID:bare>\nERROR: Require "
            "'catalog-database' for <CSID:(null)>\nERROR: Require 'catalog-database' for <CSID:a\\nb>\n");
  EXPECT_FALSE(support::file_exists(directory_.path("calls")));
}

/// NoMoreFiles sets RLIMIT_NOFILE to 0 for its lifetime: temporary files cannot be created, not even in /tmp, to which
/// the C library falls back.
class NoMoreFiles {
 public:
  NoMoreFiles() {
    getrlimit(RLIMIT_NOFILE, &old_);
    rlimit none = old_;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_NOFILE, &none);
  }
  NoMoreFiles(const NoMoreFiles &) = delete;
  NoMoreFiles &operator=(const NoMoreFiles &) = delete;
  ~NoMoreFiles() { setrlimit(RLIMIT_NOFILE, &old_); }

 private:
  rlimit old_;
};

TEST_F(Import, NeedsRoomForItsFiles) {
  append_text(body_.get(), "@DOCUMENT { -\n}\n");
  const Diagnostics diagnostics;
  {
    const NoMoreFiles limit;
    EXPECT_EQ(import(), 0);
  }
  EXPECT_NE(answer().find(refused("Failed to import RDs")), std::string::npos) << answer();
  EXPECT_NE(diagnostics.text().find("ERROR: Cannot save RDs to tmpfile?\n"), std::string::npos) << diagnostics.text();
  EXPECT_FALSE(support::file_exists(directory_.path("calls")));
}

TEST_F(Import, NeedsRoomForItsResult) {
  append_text(body_.get(), "@DOCUMENT { -\n}\n");
  csio_convert2file(body_.get());
  const Diagnostics diagnostics;
  {
    const NoMoreFiles limit;
    EXPECT_EQ(import(), 0);
  }
  EXPECT_EQ(answer(), refused("Failed to import RDs"));
  EXPECT_EQ(diagnostics.text(), "ERROR: Cannot create tmpfile?\n");
  EXPECT_FALSE(support::file_exists(directory_.path("calls")));
}

TEST_F(Import, WarnsOfPathsThatMeanSomethingToTheShell) {
  const std::filesystem::path here = std::filesystem::current_path();
  // Redirections of the broken commands write to this directory.
  std::filesystem::current_path(directory_.path());
  setenv("PATH", "/nonexistent", 1);
  testing::internal::CaptureStderr();
  for (const char c : std::string(" \t|&;<>()$`'*?[]#~!{}^\x01\x7f")) {
    const std::string path = std::string("a") + c + "b";
    const support::Registry registry(directory_, "csid=\"c\" catalog-database=\"" + path + "\"\n");
    const Diagnostics diagnostics;
    body_ = make_csio();
    EXPECT_EQ(import(), 0);
    const std::string warning =
        "WARNING: Characters in catalog-database mean "
        "something to the shell: a";
    EXPECT_EQ(diagnostics.text().substr(0, warning.size()), warning) << path;
  }
  testing::internal::GetCapturedStderr();
  std::filesystem::current_path(here);
}

TEST_F(Import, PlainPathsAreNoReasonToWarn) {
  for (const char *name : {"a-b_c.d,e:f@g%h=i+j.db", "\xc3\xa9.db"}) {
    const support::Registry registry(directory_, "csid=\"c\" catalog-database=\"" + directory_.path(name) + "\"\n");
    const Diagnostics diagnostics;
    body_ = make_csio();
    EXPECT_EQ(import(), 0);
    EXPECT_EQ(diagnostics.text(), "Expired 2 RDs.\nIndexed 5 RDs.\n") << name;
  }
}

using ImportDeathTest = Import;

TEST_F(ImportDeathTest, AnRdRequestAborts) {
  EXPECT_DEATH(import("c", RDM_RD_REQUEST), "rds:[0-9]+: assertion failed: state");
}

TEST_F(Import, StatusAnswersCarryTextAndError) {
  const RdmHeaderPtr header = make_rdmhdr(RDM_RD_RESPONSE);
  append_text(response_.get(), "left over");
  EXPECT_EQ(rds_status_ok("Done.", nullptr, header.get(), body_.get(), response_.get(), &x_.session, &x_.request), 0);
  EXPECT_EQ(answer(), accepted("Done."));
  EXPECT_EQ(rds_status_ok("Half done.", "Oh.", header.get(), body_.get(), response_.get(), &x_.session, &x_.request),
            0);
  EXPECT_EQ(answer(), soif("RDMHEADER", "-",
                           {{"rdm-version", "1.0"}, {"rdm-type", "status-response"}, {"rdm-error-message", "Oh."}}) +
                          "\n\n\n\nHalf done.\n\n");
}

}  // namespace
