// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "hosts/rdmd/rdmd_process.h"
#include "qxapi/guard.h"
#include "support/directories.h"
#include "support/environment.h"
#include "tools/rdmctl/service_files.h"

using namespace rdm;

namespace {

using support::Finished;
using testing::EndsWith;
using testing::HasSubstr;

std::string book(int number, const std::string &title = "A") {
  return "@FILE { http://localhost/" + std::to_string(number) + "\ntitle{" + std::to_string(title.size()) + "}:\t" +
         title + "\n}\n";
}

const std::string delete_header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{18}:\trd-delete-response\n}\n\n";
const std::string damaged = "@FILE { http://localhost/9\ntitle{99}:\tcut\n}\n";

class Import : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(std::filesystem::is_empty(service_.temporary_directory())) << "temporary files are left";
  }

  /// command writes a script that replaces minidba, and returns its directory.
  static std::string command(const support::TemporaryDirectory &bin, const std::string &script) {
    const std::string path = bin.write("minidba", "#!/bin/sh\n" + script + "\n");
    ::chmod(path.c_str(), 0755);
    return bin.path();
  }

  ServiceFiles service_;
};

TEST_F(Import, ASubmissionBecomesPartOfTheCatalogAndIsServed) {
  const std::string submission = service_.write("submission", book(1) + book(2));
  const Finished finished = service_.import({"--from", "harvester@localhost", submission});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "Accepted 2 RDs from harvester@localhost\n");
  EXPECT_EQ(finished.errors, "minidba: 2 new, 0 changed, 0 unchanged, 0 rejected\n");

  const std::string plugin = support::in_build("lib/librdm.so.1");
  support::RdmdProcess server({"--listen", "127.0.0.1:0", "--plugin", plugin, "--config", service_.config()});
  const auto answer = support::http_get(server.port(), "/rdm/rd-request?ql=gatherer&scope=all&view-attributes=title");
  EXPECT_EQ(answer.body,
            "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\n}\n\n\n" + book(1) + book(2));
}

TEST_F(Import, RunsAllFourCommands) {
  const std::string expired = "@FILE { http://localhost/old\nrd-expires{29}:\tThu, 01 Jan 1998 00:00:00 GMT\n}\n";
  const Finished finished = service_.import({service_.write("submission", book(1) + expired)});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "Accepted 2 RDs from Unknown-Source\n");
  EXPECT_EQ(support::read_file(service_.path("unclassified")), "http://localhost/1\n");
  EXPECT_EQ(support::read_file(service_.database() + ".idx").size(), 8u + 20u);
}

TEST_F(Import, EveryFileIsASubmissionOfItsOwn) {
  const Finished finished =
      service_.import({service_.write("one", book(1)), service_.write("two", book(2) + book(3)), "-"}, book(4));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out,
            "Accepted 1 RDs from Unknown-Source\nAccepted 2 RDs from Unknown-Source\nAccepted 1 RDs from "
            "Unknown-Source\n");
  EXPECT_EQ(support::read_file(service_.database() + ".idx").size(), 8u + 4 * 20u);
}

TEST_F(Import, TellsAsJsonWhatWasDoneForEachSubmission) {
  const std::string submission = service_.write("submission", book(1) + damaged + book(2));
  const std::string deletion = service_.write("deletion", delete_header + book(1));
  EXPECT_EQ(service_.import({"--json", submission}).out,
            R"({"input":")" + submission +
                R"(","answer":"Accepted 2 RDs from Unknown-Source","accepted":2,"offered":3})" + "\n");
  EXPECT_EQ(
      service_.import({"--json", "--delete", deletion}).out,
      R"({"input":")" + deletion + R"(","answer":"Deleted 1 RDs from Unknown-Source","deleted":1,"named":1})" + "\n");
}

TEST_F(Import, LeavesALineInTheTransactionLogForEach) {
  service_.import({"--from", "me", service_.write("one", book(1)), service_.write("two", book(2))});
  const std::string log = support::read_file(service_.path("rdm.log"));
  EXPECT_THAT(log, HasSubstr("\"Accepted 1 RDs from me\" - -\n"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
}

TEST_F(Import, AWholeMessageIsASubmissionToo) {
  const std::string header = "@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{11}:\trd-response\n}\n\n";
  const Finished finished = service_.import({"-"}, header + book(1) + book(2));
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.out, "Accepted 2 RDs from Unknown-Source\n");
}

// The service imports an rd-delete-response as an rd-response: descriptions that a gatherer deletes would be updated.
TEST_F(Import, ADeleteResponseIsRefusedWithoutTheOption) {
  service_.import({"-"}, book(1));
  const std::string message = service_.write("message", delete_header + book(2));
  const Finished finished = service_.import({service_.write("more", book(3)), message});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "") << "no other submission is imported either";
  EXPECT_EQ(finished.errors,
            "rdmctl: " + message + " is an rd-delete-response: give --delete to delete what it names\n");
  EXPECT_EQ(support::read_file(service_.path("unclassified")), "http://localhost/1\n");
}

// Regression: empty lines or a byte order mark in front hid the header, and an rd-delete-response was imported as an
// update.
TEST_F(Import, ADeleteResponseIsRecognisedBehindEmptyLinesAndAByteOrderMark) {
  for (const std::string &front : {std::string("\n\n"), std::string("\xEF\xBB\xBF"), std::string(100, '\n')}) {
    const Finished finished = service_.import({"-"}, front + delete_header + book(2));
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.errors, "rdmctl: - is an rd-delete-response: give --delete to delete what it names\n");
  }
  service_.import({"-"}, book(1) + book(2));
  EXPECT_EQ(service_.import({"--delete", "-"}, "\n" + delete_header + book(2)).out,
            "Deleted 1 RDs from Unknown-Source\n");
}

TEST_F(Import, ADeletionThatGetsStuckSaysThatTheCatalogHasChanged) {
  service_.import({"-"}, book(1) + book(2));
  const std::string index = service_.database() + ".idx";
  std::filesystem::remove(index);
  std::filesystem::create_directory(index);
  const Finished finished = service_.import({"--delete", "-"}, delete_header + book(1));
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, HasSubstr(index));
}

// An import removed every directory with the name of a temporary one, with all files in it.
TEST_F(Import, RemovesOnlyTemporaryDirectoriesThatAnImportHasMade) {
  const std::filesystem::path directory = service_.temporary_directory();
  for (const char *name : {"rdmctl-backup", "rdmctl-killed"}) {
    std::filesystem::create_directory(directory / name);
    support::write_file(directory / name / "file", "text");
  }
  support::write_file(directory / "rdmctl-killed" / ".rdmctl-import", "");
  EXPECT_EQ(service_.import({"-"}, book(1)).status, 0);
  EXPECT_FALSE(std::filesystem::exists(directory / "rdmctl-killed"));
  EXPECT_EQ(support::read_file(directory / "rdmctl-backup" / "file"), "text");
  std::filesystem::remove_all(directory / "rdmctl-backup");
}

TEST_F(Import, ADeleteResponseDeletesTheUrlsOfItsObjectsOrLines) {
  const std::pair<std::string, std::string> bodies[] = {{"objects", book(1) + book(3)},
                                                        {"lines", "http://localhost/1\r\n\n  http://localhost/3\n"}};
  for (const auto &[what, body] : bodies) {
    service_.import({"-"}, book(1) + book(2) + book(3));
    const Finished finished =
        service_.import({"--delete", "--from", "me", service_.write("message", delete_header + body)});
    EXPECT_EQ(finished.status, 0) << what << finished.errors;
    EXPECT_EQ(finished.out, "Deleted 2 RDs from me\n") << what;
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(support::read_file(service_.path("unclassified")), "http://localhost/2\n") << what;
    EXPECT_EQ(support::read_file(service_.database() + ".idx").size(), 8u + 20u) << what;
    EXPECT_THAT(support::read_file(service_.path("rdm.log")), EndsWith("\"Deleted 2 RDs from me\" - -\n")) << what;
  }
}

/// An import without a file seemed to hang.
TEST_F(Import, SaysThatItReadsFromTheTerminal) {
  const HostFileGuard screen(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ASSERT_TRUE(screen && ::grantpt(screen.get()) == 0 && ::unlockpt(screen.get()) == 0);
  const std::string terminal = ::ptsname(screen.get()), errors = service_.path("errors");
  const HostFileGuard held(::open(terminal.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  const std::string typed = book(1) + "\x04";
  const pid_t child = support::start(service_.import_command({"-"}), terminal, service_.path("out"), errors);
  ASSERT_EQ(::write(screen.get(), typed.data(), typed.size()), static_cast<ssize_t>(typed.size()));
  EXPECT_EQ(support::wait_for(child), 0);
  EXPECT_EQ(support::read_file(service_.path("out")), "Accepted 1 RDs from Unknown-Source\n");
  EXPECT_THAT(support::read_file(errors),
              testing::StartsWith("rdmctl: import reads from the terminal; Ctrl-D at the start of a line ends it\n"));
}

TEST_F(Import, DeletingAMissingDescriptionIsIncomplete) {
  service_.import({"-"}, book(1));
  const Finished finished = service_.import({"--delete", "-"}, delete_header + book(1) + book(2));
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "Deleted 1 RDs from Unknown-Source\n");
  EXPECT_EQ(finished.errors,
            "rdmctl: no description http://localhost/2\nrdmctl: -: 1 of 2 descriptions were deleted\n");
}

TEST_F(Import, DeleteRequiresAnRdmHeader) {
  const std::string submission = service_.write("submission", book(1));
  const Finished finished = service_.import({"--delete", submission});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors, "rdmctl: " + submission + " has no RDM header: --delete takes whole messages only\n");
}

/// Interrupted is an import whose minidba blocks in one verb until a signal ends it.
class Interrupted : public Import {
 protected:
  /// interrupt sends a signal to an import while minidba runs a verb.
  Finished interrupt(int signal, const std::string &verb) {
    const support::TemporaryDirectory bin;
    const std::string started = bin.path("started"), hold = bin.path("hold");
    ::mkfifo(hold.c_str(), 0600);
    const ServiceFiles service(command(bin, "case \" $* \" in *\" " + verb + " \"*) touch " + started + "; read x <" +
                                                hold + ";; esac\nexec " + support::in_build("bin/minidba") +
                                                " \"$@\""));
    const std::string out = bin.path("out"), errors = bin.path("errors");
    const pid_t import = support::start(
        {program, "import", "--config", service.config(), "--csid", csid, service.write("submission", book(1))},
        "/dev/null", out, errors);
    EXPECT_TRUE(support::eventually([&] { return support::file_exists(started); }));
    ::kill(import, signal);
    const int status = support::wait_for(import);
    // open fails because no process reads the pipe: the shell that replaces minidba has ended.
    EXPECT_EQ(::open(hold.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC), -1) << "a child was left";
    EXPECT_TRUE(std::filesystem::is_empty(service.temporary_directory())) << "temporary files are left";
    return {status, support::read_file(out), support::read_file(errors)};
  }
};

TEST_F(Interrupted, EndsItsChildAndLeavesNoFile) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const Finished finished = interrupt(signal, "update");
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors,
              "rdmctl: interrupted by SIG" + std::string(::sigabbrev_np(signal)) + ": the catalog has not changed\n");
  }
}

TEST_F(Interrupted, SaysThatTheCatalogHasChanged) {
  const Finished finished = interrupt(SIGTERM, "index");
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(
      finished.errors,
      EndsWith("rdmctl: interrupted by SIGTERM: the catalog has changed, and its index has not: import again\n"));
}

// Regression: root's import gave the server's diagnostic log to "nobody": the server could no longer write it.
TEST_F(Import, AsRootItBecomesTheOwnerOfTheLogsAndElseStaysTheCaller) {
  constexpr uid_t daemon = 1;
  const std::string log = service_.write("debug.log", "");
  const std::string text = support::read_file(service_.config());
  support::write_file(service_.config(), text + "debug-logfile=\"" + log + "\"\n");
  const std::string submission = service_.write("submission", book(1));
  struct stat status;
  if (::geteuid() != 0) {
    EXPECT_EQ(::chown(log.c_str(), daemon, daemon), -1) << "only root gives a log to another user";
    const Finished own = service_.import({submission});
    EXPECT_EQ(own.status, 0);
    EXPECT_EQ(own.errors, "minidba: 1 new, 0 changed, 0 unchanged, 0 rejected\n");
    ASSERT_EQ(::stat(service_.database().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, ::geteuid());
    return;
  }
  ASSERT_EQ(::chown(log.c_str(), daemon, daemon), 0);
  const Finished finished = service_.import({submission});
  EXPECT_EQ(finished.status, 2);
  EXPECT_THAT(finished.errors, testing::StartsWith("rdmctl: " + log + " belongs to daemon: running as daemon\n"));
  EXPECT_FALSE(support::file_exists(service_.database()));
  ASSERT_EQ(::stat(log.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, daemon);
  for (const std::string &directory : {service_.path(""), service_.temporary_directory()})
    ::chmod(directory.c_str(), 0777);
  EXPECT_EQ(service_.import({submission}).status, 0);
  ASSERT_EQ(::stat(log.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, daemon);
}

TEST_F(Import, AMessageOfAnotherKindIsRefused) {
  const auto refused = [&](const std::string &header, const std::string &reason) {
    const Finished finished = service_.import({service_.write("message", header + book(1))});
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: " + reason + "\n");
    EXPECT_FALSE(support::file_exists(service_.database()));
  };
  const std::string file = service_.path("message");
  refused("@RDMHEADER { -\nrdm-version{3}:\t1.0\nrdm-type{10}:\trd-request\n}\n",
          file + " is neither an rd-response nor an rd-delete-response");
  refused("@RDMHEADER { -\nrdm-version{3}:\t2.0\nrdm-type{11}:\trd-response\n}\n",
          "the RDM header of " + file + " is malformed");
  refused("@rdmheader", "the RDM header of " + file + " is malformed");
}

TEST_F(Import, ADamagedOrEmptySubmissionIsIncomplete) {
  const struct {
    std::string submission, accepted, of;
  } rows[] = {{book(1) + damaged + book(2), "2", "3"}, {"", "0", "0"}};
  for (const auto &row : rows) {
    const std::string submission = service_.write("submission", row.submission);
    const Finished finished = service_.import({submission});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.out, "Accepted " + row.accepted + " RDs from Unknown-Source\n");
    EXPECT_THAT(finished.errors, EndsWith("rdmctl: " + submission + ": " + row.accepted + " of " + row.of +
                                          " descriptions were accepted\n"));
  }
}

TEST_F(Import, AnIncompleteFileDoesNotStopTheOtherFiles) {
  const Finished finished = service_.import({service_.write("one", damaged), service_.write("two", book(2))});
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.out, "Accepted 0 RDs from Unknown-Source\nAccepted 1 RDs from Unknown-Source\n");
}

TEST_F(Import, WithoutMinidbaNothingIsAccepted) {
  const support::TemporaryDirectory empty;
  const ServiceFiles service(empty.path());
  const std::string submission = service.write("submission", book(1));
  const Finished finished = support::run({"/usr/bin/env", "PATH=/bin:/usr/bin", program, "import", "--config",
                                          service.config(), "--csid", csid, submission});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "Accepted 0 RDs from Unknown-Source\n");
  EXPECT_THAT(finished.errors, HasSubstr("minidba"));
  EXPECT_THAT(finished.errors, EndsWith("rdmctl: " + submission + ": 0 of 1 description was accepted\n"));
}

TEST_F(Import, TheNumberThatMinidbaPrintsDecides) {
  const struct {
    std::string script;
    int status, accepted;
  } rows[] = {{"exit 3", 2, 0},
              {"echo many", 2, 0},
              {"echo 'no number'; exit 1", 2, 0},
              {"kill -9 $$", 2, 0},
              {"echo 1", 1, 1}};
  for (const auto &row : rows) {
    const support::TemporaryDirectory bin;
    const ServiceFiles service(command(bin, row.script));
    const Finished finished = service.import({service.write("submission", book(1) + book(2))});
    EXPECT_EQ(finished.status, row.status) << row.script;
    EXPECT_EQ(finished.out, "Accepted " + std::to_string(row.accepted) + " RDs from Unknown-Source\n") << row.script;
  }
}

// The answer tells only about the update. Regression: accepted descriptions could not be found, and rdmctl reported
// success.
TEST_F(Import, ACommandThatFailsAfterTheUpdateIsNoticed) {
  const std::string expired = "@FILE { http://localhost/old\nrd-expires{29}:\tThu, 01 Jan 1998 00:00:00 GMT\n}\n";
  const std::pair<std::string, std::string> rows[] = {
      {"index", "the index was not written"},
      {"expire", "1 description that has expired is still there"},
  };
  for (const auto &[verb, fault] : rows) {
    const support::TemporaryDirectory bin;
    const std::string script =
        "case \" $* \" in *\" " + verb + " \"*) exit 2;; esac\nexec " + support::in_build("bin/minidba") + " \"$@\"";
    const ServiceFiles service(command(bin, script));
    const std::string submission = service.write("submission", book(1) + expired);
    for (int round = 0; round < 2; ++round) {
      const Finished finished = service.import({submission});
      EXPECT_EQ(finished.status, 1) << verb;
      EXPECT_EQ(finished.out, "Accepted 2 RDs from Unknown-Source\n") << verb;
      EXPECT_THAT(finished.errors, EndsWith("rdmctl: " + submission + ": " + fault + "\n"));
    }
  }
}

TEST_F(Import, ASubmissionThatCannotBeStoredIsNotImported) {
  const std::string submission = service_.write("submission", book(1, std::string(100'000, 'x')));
  const support::TemporaryDirectory counters;
  const support::Uncounted uncounted(counters.path());
  const Finished finished = support::run({"/bin/sh", "-c", "trap '' XFSZ; ulimit -f 100; exec \"$@\"", "sh", program,
                                          "import", "--config", service_.config(), "--csid", csid, submission});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.out, "");
  EXPECT_EQ(finished.errors, "rdmctl: cannot store " + submission + " in the directory for temporary files\n");
  EXPECT_FALSE(support::file_exists(service_.database()));
}

TEST_F(Import, ASubmissionOfManyBlocksIsReadToItsEnd) {
  std::string submission;
  for (int i = 0; i < 200; ++i) submission += book(i, std::string(1000, 'x'));
  EXPECT_EQ(service_.import({"-"}, submission).out, "Accepted 200 RDs from Unknown-Source\n");
}

TEST_F(Import, ReportsUnreadableInputsAndUnusableServices) {
  const auto failed = [&](const Finished &finished, const std::string &reason) {
    EXPECT_EQ(finished.status, 2);
    EXPECT_EQ(finished.out, "");
    EXPECT_EQ(finished.errors, "rdmctl: " + reason + "\n");
  };
  failed(service_.import({"/nowhere"}), "cannot read /nowhere: No such file or directory");
  failed(service_.import({"/"}), "cannot read /: Is a directory");
  const std::string list = service_.path("csid.conf");
  failed(support::run({program, "import", "--config", "/nowhere", "--csid", csid, "-"}),
         "cannot read /nowhere: No such file or directory");
  failed(support::run({program, "import", "--config", service_.config(), "--csid", "other", "-"}),
         "no catalog service other in " + list);
  failed(support::run({program, "import", "--config", service_.config(), "--csid", "bare", "-"}),
         "catalog service bare has no catalog-database in " + list);
}

TEST_F(Import, AConfigurationThatTheServiceRefusesIsNamed) {
  const std::string config = service_.write("broken.conf", "bindir=\"/bin\"\n");
  const Finished finished = support::run({program, "import", "--config", config, "--csid", csid, "-"});
  EXPECT_EQ(finished.status, 2);
  EXPECT_EQ(finished.errors,
            "Parameter 'csid-config' required by rdm-init in configuration file.\n"
            "rdmctl: the service refuses " +
                config + "\n");
}

}  // namespace
