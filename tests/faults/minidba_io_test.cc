// SPDX-License-Identifier: MIT
/// minidba while files fail: each file operation of each verb fails with each errno. Its messages must be true, and the
/// catalog must be the old one or the new one.
///
/// Unless RDM_IO_FAULTS is "all", each errno is tried on one call of each class.

#include <cerrno>
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "faults/io_fault.h"
#include "tools/minidba/catalog_state.h"

using namespace rdm;

namespace {

using faults::IoFault;
using support::Finished;

/// A verb and its input, on a catalog of forty descriptions of which some are indexed, or without a catalog.
struct Work {
  const char *name;
  std::vector<std::string> words;
  std::string input;
  bool has_catalog = true;
  int indexed = 40;
  int status = 0;  // if nothing fails
};

void PrintTo(const Work &work, std::ostream *out) { *out << work.name; }

std::string url(int number) { return "http://localhost/" + std::to_string(number); }

std::string described(int from, int to, const std::string &title) {
  std::string stream;
  for (int i = from; i < to; ++i)
    stream +=
        rd(url(i),
           {{"title", title}, {"body", std::string(400, 'b')}, {"rd-expires", i % 5 == 0 ? "1 Jan 2000" : "never"}});
  return stream;
}

/// Prefix of words that name a file beside the catalog.
const std::string in_directory = "DIRECTORY";

const std::vector<Work> &works() {
  static const std::string damaged = "@DOCUMENT { " + url(99) + "\ntitle{99}:\tcut\n}\n";
  static const std::vector<Work> all = {
      {"Update", {"update"}, described(20, 22, "new")},
      {"UpdateOfMany", {"update"}, described(10, 60, "new")},
      {"UpdateOfNothing", {"update"}, described(1, 5, "new"), false},
      {"UpdateWithRejects",
       {"update", "--rejects", "DIRECTORY/rejects"},
       damaged + described(20, 22, "new"),
       true,
       40,
       1},
      {"Expire", {"expire"}, ""},
      {"Index", {"index"}, "", true, 30},
      {"Unclassified", {"unclassified"}, ""},
      {"GetNumber", {"get", "3"}, ""},
      {"GetUrl", {"get", url(3)}, ""},
      {"List", {"list", "--format", "tsv", "--attributes", "title"}, ""},
      {"Delete", {"delete", "-"}, url(3) + "\n" + url(4) + "\n"},
      {"Stats", {"stats"}, ""},
      {"Verify", {"verify"}, ""},
      {"Rebuild", {"rebuild"}, ""},
      {"Export", {"export", "DIRECTORY/exported"}, ""},
      {"ExportToOutput", {"export"}, ""},
      {"Import", {"import", "--replace", "--no-header"}, described(0, 10, "new")},
      {"ImportOfNothing", {"import", "--no-header"}, described(0, 10, "new"), false},
  };
  return all;
}

/// call_on returns a call of minidba with these words on a catalog.
faults::Call call_on(const CatalogFiles &catalog, const std::vector<std::string> &words, const std::string &input) {
  faults::Call call{"minidba", catalog.command({"-i", catalog.path(".idx")}), input};
  for (const std::string &word : words)
    call.arguments.push_back(word.starts_with(in_directory) ? catalog.directory() + word.substr(in_directory.size())
                                                            : word);
  return call;
}

class MinidbaIo : public testing::TestWithParam<Work> {
 protected:
  void SetUp() override {
    if (GetParam().has_catalog) {
      ASSERT_EQ(catalog_.update(described(0, GetParam().indexed, "old")).status, 0);
      ASSERT_EQ(catalog_.index().status, 0);
      ASSERT_EQ(catalog_.update(described(0, 40, "old")).status, 0);
      for (const char *suffix : suffixes) std::filesystem::create_hard_link(catalog_.path(suffix), kept(suffix));
    }
    before_ = state_of(catalog_);
    right_ = support::run(call().arguments, call().input);
    after_ = state_of(catalog_);
    restore();
  }

  std::string kept(const std::string &suffix) const { return kept_.path("kept") + suffix; }

  /// restore puts back hard links to the original files: the URL map identifies the database by its inode.
  void restore() const {
    for (const std::string &name : catalog_.files())
      if (name != "catalog.db.lock") std::filesystem::remove(catalog_.directory() + "/" + name);
    if (!GetParam().has_catalog) return;
    for (const char *suffix : suffixes) std::filesystem::create_hard_link(kept(suffix), catalog_.path(suffix));
  }

  faults::Call call() const { return call_on(catalog_, GetParam().words, GetParam().input); }

  /// leftovers returns the names of temporary files in the catalog's directory.
  std::vector<std::string> leftovers() const {
    std::vector<std::string> names;
    for (const std::string &name : catalog_.files())
      if (name.find(".new") != std::string::npos || name.find(".scratch-") != std::string::npos) names.push_back(name);
    return names;
  }

  /// expect_sound runs verify on database and URL map. An older index is not an error.
  void expect_sound() const {
    if (!support::file_exists(catalog_.path()) || is_same_file(catalog_.path(), kept(""))) return;
    const bool has_index = support::file_exists(catalog_.path(".idx"));
    if (has_index) std::filesystem::rename(catalog_.path(".idx"), kept_.path("index"));
    const Finished verdict = support::run(catalog_.command({"verify"}));
    EXPECT_EQ(verdict.status, 0) << verdict.out << verdict.errors;
    if (has_index) std::filesystem::rename(kept_.path("index"), catalog_.path(".idx"));
  }

  static bool is_same_file(const std::string &a, const std::string &b) {
    std::error_code ignored;
    return std::filesystem::equivalent(a, b, ignored);
  }

  /// expect_honest compares exit status and output with the state of the catalog.
  void expect_honest(const IoFault &fault, const Finished &finished) const {
    ASSERT_LT(finished.status, 128) << "ended by a signal";
    const CatalogState now = state_of(catalog_);
    if (finished.status == right_.status) {
      EXPECT_EQ(without_times(finished.out), without_times(right_.out));
      EXPECT_TRUE(now == after_) << "what it says it did is not done: " << finished.errors;
    } else {
      EXPECT_FALSE(fault.is_harmless()) << finished.errors;
      EXPECT_THAT(finished.errors, testing::HasSubstr("minidba: "));
      EXPECT_TRUE(is_either(now, before_, after_)) << "neither the old files nor the new: " << finished.errors;
    }
  }

  /// expect_no_hindrance accepts leftovers only if unlink() failed, and expects the next writer to remove them.
  void expect_no_hindrance(const IoFault &fault) const {
    if (leftovers().empty()) return;
    EXPECT_EQ(fault.kind, "unlink") << testing::PrintToString(leftovers());
    EXPECT_EQ(support::run(call().arguments, call().input).status, right_.status);
    EXPECT_THAT(leftovers(), testing::IsEmpty());
  }

  static constexpr const char *suffixes[] = {"", ".url", ".idx"};
  CatalogFiles catalog_;
  support::TemporaryDirectory kept_;
  CatalogState before_, after_;
  Finished right_{};
};

TEST_P(MinidbaIo, ReportsTheOutcomeAndLeavesTheOldOrTheNewCatalog) {
  EXPECT_EQ(right_.status, GetParam().status) << right_.errors;
  const auto faults = faults::io_faults(faults::count_calls(call()));
  EXPECT_GT(faults.size(), 5u);
  for (const IoFault &fault : faults) {
    SCOPED_TRACE(testing::PrintToString(fault));
    restore();
    expect_honest(fault, faults::run_with(fault, call()));
    expect_sound();
    expect_no_hindrance(fault);
  }
  RecordProperty("runs", std::to_string(faults.size()));
}

/// SmallCatalog is a catalog of forty descriptions.
class SmallCatalog {
 public:
  SmallCatalog() { catalog_.update(described(0, 40, "old")); }

  faults::Call call(const std::vector<std::string> &words, const std::string &input = "") const {
    return call_on(catalog_, words, input);
  }

 private:
  CatalogFiles catalog_;
};

/// with_each fails each call of a class during a verb, each time on a new catalog, and checks the result.
template <typename Check>
void with_each(const std::string &kind, const std::string &verb, const std::string &input, Check check) {
  const long calls = faults::count_calls(SmallCatalog().call({verb}, input))[kind];
  EXPECT_GT(calls, 0) << kind;
  for (long n = 1; n <= calls; ++n) {
    const IoFault fault{kind, n, EIO};
    SCOPED_TRACE(testing::PrintToString(fault));
    check(faults::run_with(fault, SmallCatalog().call({verb}, input)));
  }
}

// A class that the program does not use would test nothing. minidba opens no streams.
TEST(MinidbaIoFaults, MeetAnUpdateWithEveryKindOfFileOperation) {
  const auto calls = faults::count_calls(SmallCatalog().call({"update"}, described(2, 3, "new")));
  for (const std::string &kind : faults::io_kinds())
    EXPECT_EQ(calls.count(kind), kind == "fopen" || kind == "fread" ? 0u : 1u) << kind;
}

// Regression: when peeking into an object failed, the object was rejected as malformed, the others were imported, and
// the submission counted as done.
TEST(MinidbaIoFaults, AnUnreadableObjectIsNotRejectedAsMalformed) {
  for (const char *kind : {"seek", "read"})
    with_each(kind, "update", described(0, 3, "new"), [](const Finished &finished) {
      EXPECT_THAT(finished.errors, testing::Not(testing::HasSubstr("rejected:")));
      EXPECT_TRUE(finished.status == 2 || finished.out == "3\n") << finished.out;
    });
}

// Regression: an unreadable URL map was treated as missing, and the catalog was called sound.
TEST(MinidbaIoFaults, ACatalogWithAnUnreadableUrlMapIsNotCalledSound) {
  for (const char *kind : {"open", "read", "stat"})
    with_each(kind, "verify", "", [](const Finished &finished) {
      EXPECT_TRUE(finished.status != 0 || finished.out == "sound: 40 descriptions, no index\n") << finished.out;
    });
}

INSTANTIATE_TEST_SUITE_P(Verbs, MinidbaIo, testing::ValuesIn(works()),
                         [](const testing::TestParamInfo<Work> &work) { return work.param.name; });

}  // namespace
