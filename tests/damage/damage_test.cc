// SPDX-License-Identifier: MIT
/// With any damage to the files of a catalog, the service sends well-formed answers, verify reports every visible
/// change, and a writer loses no readable description. RDM_DAMAGE_TRIALS is the number of flipped bits; a fifth as many
/// pages are damaged.
#include <malloc.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <set>

#include <gtest/gtest.h>

#include "catalog/record.h"
#include "damage/catalog.h"
#include "damage/corruption.h"
#include "damage/pages.h"
#include "libcs/guard.h"
#include "service/rdm.h"
#include "service/rds/snapshot.h"
#include "support/environment.h"
#include "support/memory_host.h"

using namespace rdm;

namespace {

using damage::Answer;
using damage::Corruption;
using damage::Files;
using damage::Finished;
using damage::Records;

constexpr int batch_size = 50;
constexpr unsigned trial_seconds = 240;

/// Fill bytes of fresh and of released memory, by the C library or by the address sanitizer. No output may hold a run
/// of them.
constexpr char fresh = '\x17', stale = '\xE8', fresh_sanitized = '\xBE';
constexpr size_t run_length = 8;

int trials() { return support::number_from("RDM_DAMAGE_TRIALS", 50); }

bool holds_stray_memory(const std::string &bytes) {
  const std::string fills{fresh, stale, fresh_sanitized};
  return std::any_of(fills.begin(), fills.end(),
                     [&](char fill) { return bytes.find(std::string(run_length, fill)) != std::string::npos; });
}

/// fault_of returns the fault of an answer: it must be complete and have a header, and then objects as print returns
/// them or, after a header with an error, none.
std::string fault_of(const Answer &answer) {
  if (answer.started != 1 || answer.status != 200) return "no answer";
  if (answer.announced != std::to_string(answer.body.size())) return "announced with another length";
  SoifReader reader(answer.body);
  const SoifPtr header = reader.next();
  if (!header || std::string(header->template_name) != "RDMHEADER") return "no header";
  std::string objects, type = soif_findval(header.get(), "rdm-type");
  const std::string rest = answer.body.substr(static_cast<size_t>(reader.position()));
  while (!reader.at_end())
    if (const SoifPtr object = reader.next()) objects += catalog::print(object.get());
  const bool has_error = soif_findval(header.get(), "rdm-error-message") != nullptr;
  if (type != "rd-response" && type != "status-response") return "of type " + type;
  if (has_error != objects.empty()) return "neither objects nor an error";
  const size_t blank = std::min(rest.find_first_not_of('\n'), rest.size());
  if (rest.substr(blank) != objects) return "objects that are printed otherwise";
  return holds_stray_memory(answer.body) ? "stray memory" : "";
}

/// Sight is the output of the service and of all reading verbs for a catalog.
struct Sight {
  Answer all, since, some;
  Finished list, exported, unclassified, stats, got;
};

/// Trial is one damaged catalog.
class Trial {
 public:
  Trial(damage::Catalog &catalog, const Sight &undamaged) : catalog_(catalog), undamaged_(undamaged) {}

  /// run returns what went wrong, line by line.
  std::string run(const Corruption &corruption, int number);
  static Sight look(const damage::Catalog &catalog);

 private:
  void complain(const std::string &text) { complaints_ += text + '\n'; }
  void check_answers(const Sight &sight);
  void check_verdict(const Sight &sight, const Corruption &corruption);
  void check_writer(const std::string &verb, const Corruption &corruption);
  void check_kept(const std::string &verb, const Records &before, const std::set<uint32_t> &changed);

  damage::Catalog &catalog_;
  const Sight &undamaged_;
  std::string complaints_;
};

Sight Trial::look(const damage::Catalog &catalog) {
  return {damage::Catalog::serve("all"),
          damage::Catalog::serve("since Sun, 09 Sep 2001 21:46:40 GMT"),
          damage::Catalog::serve("all", "title,rd-last-changed"),
          catalog.run("list"),
          catalog.run("export"),
          catalog.run("unclassified"),
          catalog.run("stats"),
          catalog.run("get", "", {"7", damage::url_of(30)})};
}

void Trial::check_answers(const Sight &sight) {
  for (const auto &[name, answer] : {std::pair("all", &sight.all), {"since", &sight.since}, {"some", &sight.some}})
    if (const std::string fault = fault_of(*answer); !fault.empty()) complain(std::string(name) + ": " + fault);
  for (const Finished *finished : {&sight.list, &sight.exported, &sight.unclassified, &sight.stats, &sight.got})
    if (holds_stray_memory(finished->out + finished->errors)) complain("stray memory in the output of a verb");
}

bool is_same(const Sight &a, const Sight &b) {
  return a.all.body == b.all.body && a.since.body == b.since.body && a.some.body == b.some.body &&
         a.list.out == b.list.out && a.exported.out == b.exported.out && a.unclassified.out == b.unclassified.out &&
         a.got.out == b.got.out;
}

/// in_slack returns true if only bytes have changed that no reader reads.
bool in_slack(const std::string &before, const std::string &after) {
  if (before.size() != after.size()) return false;
  const std::vector<bool> matters = damage::HashPages(before).matters();
  for (size_t i = 0; i < before.size(); ++i)
    if (before[i] != after[i] && matters[i]) return false;
  return true;
}

/// in_writers_header returns true if, besides, only numbers of the header have changed that only writers use.
bool in_writers_header(const std::string &before, const std::string &after) {
  if (before.size() != after.size()) return false;
  const auto header_of = [](const std::string &bytes) {
    return hashdb::decode(reinterpret_cast<const unsigned char *>(bytes.data()));
  };
  const hashdb::Header a = header_of(before);
  hashdb::Header b = header_of(after);
  b.directory_size = a.directory_size;
  b.last_freed = a.last_freed;
  b.fill_factor = a.fill_factor;
  std::copy(a.spares + a.overflow_point, std::end(a.spares), b.spares + a.overflow_point);
  std::copy(std::begin(a.bitmaps), std::end(a.bitmaps), b.bitmaps);
  return std::memcmp(&a, &b, sizeof a) == 0 &&
         in_slack(before, before.substr(0, hashdb::header_size) + after.substr(hashdb::header_size));
}

void Trial::check_verdict(const Sight &sight, const Corruption &corruption) {
  const Finished verdict = catalog_.run("verify");
  if (holds_stray_memory(verdict.out + verdict.errors)) complain("stray memory in a verdict");
  if (verdict.status != minidba::exit_done) return;
  if (!is_same(sight, undamaged_)) complain("a change that can be seen is not told of: " + verdict.out);
  const Files &before = catalog_.files(), &after = corruption.files;
  if (before[damage::index_file] != after[damage::index_file]) complain("a changed index is called sound");
  if (!in_writers_header(before[damage::database], after[damage::database]))
    complain("bytes that matter have changed and are called sound");
  const std::string &map = before[damage::url_map];
  if (verdict.out.find("no URL map") == std::string::npos && !in_writers_header(map, after[damage::url_map]))
    complain("a changed map is called sound");
}

/// check_kept looks for descriptions that a writer lost.
void Trial::check_kept(const std::string &verb, const Records &before, const std::set<uint32_t> &changed) {
  const Records after = catalog_.found();
  for (const auto &[number, record] : before) {
    const auto found = after.find(number);
    if (!changed.contains(number) && (found == after.end() || found->second != record))
      complain(verb + " lost description " + std::to_string(number));
  }
}

void Trial::check_writer(const std::string &verb, const Corruption &corruption) {
  const Records before = catalog_.found();
  std::string input;
  std::vector<std::string> arguments;
  std::set<uint32_t> changed;
  if (verb == "update") {
    changed = {3};
    input = damage::description(3, 100) + damage::description(2000, 60);
  } else if (verb == "delete") {
    changed = {5};
    arguments = {damage::url_of(5)};
  }
  const Finished finished = catalog_.run(verb, input, arguments);
  if (holds_stray_memory(finished.out + finished.errors)) complain("stray memory in the output of " + verb);
  if (finished.status == tools::exit_failure) {
    if (support::read_file(catalog_.path(damage::database)) != corruption.files[damage::database])
      complain(verb + " failed and changed the database");
    return;
  }
  const std::string bytes = support::read_file(catalog_.path(damage::database));
  if (bytes != corruption.files[damage::database] && holds_stray_memory(bytes)) complain(verb + " wrote stray memory");
  check_kept(verb, before, changed);
}

std::string Trial::run(const Corruption &corruption, int number) {
  static constexpr const char *writers[] = {"update", "rebuild", "delete", "expire"};
  complaints_.clear();
  snapshots::drop_all();  // an open catalog is kept for the next request
  const long blocks = support::host_record().live_blocks;
  catalog_.write(corruption.files);
  const Sight sight = look(catalog_);
  check_answers(sight);
  check_verdict(sight, corruption);
  check_writer(writers[number % 4], corruption);
  snapshots::drop_all();
  if (support::host_record().live_blocks != blocks) complain("memory is lost");
  return complaints_;
}

using Damaging = Corruption (*)(const Files &, uint32_t);

/// Row is a way to damage the catalog of a writer.
struct Row {
  const char *name;
  damage::Writer writer;
  Damaging damaging;
  int share;  // of the trials
};

class DamagedCatalog : public support::HostTest, public testing::WithParamInterface<Row> {
 protected:
  DamagedCatalog() {
    rdm_service_crit = host_crit_create();
    catalog_.emplace(GetParam().writer);
    // The hash library has left what it found in memory between the slots and the data of its pages; only now is
    // memory filled: what is given back with this byte, what is fresh with its complement.
    ::mallopt(M_PERTURB, static_cast<unsigned char>(stale));
  }
  ~DamagedCatalog() override {
    catalog_.reset();
    host_free(rdm_service_crit);
    rdm_service_crit = nullptr;
    ::mallopt(M_PERTURB, 0);
  }

  /// run_batch runs trials in a process of its own and returns what went wrong.
  std::string run_batch(int first, int last) {
    const std::string complaints = directory_.path("complaints");
    support::write_file(complaints, "");
    *current_ = first;
    const pid_t child = ::fork();
    if (child == 0) ::_exit(run_trials(first, last, complaints));
    int status = 0;
    ::waitpid(child, &status, 0);
    std::string result = support::read_file(complaints);
    if (status != 0)
      result += "trial " + std::to_string(*current_) + " (" +
                GetParam().damaging(catalog_->files(), static_cast<uint32_t>(*current_)).what +
                ") ended the process with status " + std::to_string(status) + "\n";
    return result;
  }

  int run_trials(int first, int last, const std::string &complaints) {
    std::string text;
    Trial trial(*catalog_, undamaged_);
    for (*current_ = first; *current_ < last; ++*current_) {
      ::alarm(trial_seconds);
      const Corruption corruption = GetParam().damaging(catalog_->files(), static_cast<uint32_t>(*current_));
      if (const std::string found = trial.run(corruption, *current_); !found.empty())
        text += "trial " + std::to_string(*current_) + " (" + corruption.what + "):\n" + found;
    }
    support::write_file(complaints, text);
    return testing::Test::HasFailure() ? 1 : 0;
  }

  support::TemporaryDirectory directory_;
  std::optional<damage::Catalog> catalog_;
  Sight undamaged_;
  int *current_ =
      static_cast<int *>(::mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
};

TEST_P(DamagedCatalog, IsServedVerifiedAndChangedHonestly) {
  undamaged_ = Trial::look(*catalog_);
  const Finished verdict = catalog_->run("verify");
  ASSERT_EQ(verdict.status, minidba::exit_done) << verdict.errors;
  const damage::HashPages pages(catalog_->files()[damage::database]);
  ASSERT_GE(pages.header.max_bucket, 7u);
  ASSERT_GE(pages.overflow.size(), 5u);
  ASSERT_EQ(Trial(*catalog_, undamaged_).run({"", catalog_->files()}, 0), "") << "without any damage";

  const int count = trials() * GetParam().share / 100;
  std::string complaints;
  for (int first = 0; first < count; first += batch_size)
    complaints += run_batch(first, std::min(count, first + batch_size));
  EXPECT_EQ(complaints, "");
}

INSTANTIATE_TEST_SUITE_P(EachKind, DamagedCatalog,
                         testing::Values(Row{"BitsOfAFileOfTheLibrary", damage::Writer::library, damage::flip_bit, 60},
                                         Row{"BitsOfAFileOfMinidba", damage::Writer::minidba, damage::flip_bit, 40},
                                         Row{"PagesOfAFileOfTheLibrary", damage::Writer::library, damage::spoil_page,
                                             12},
                                         Row{"PagesOfAFileOfMinidba", damage::Writer::minidba, damage::spoil_page, 8}),
                         [](const testing::TestParamInfo<Row> &row) { return row.param.name; });

}  // namespace
