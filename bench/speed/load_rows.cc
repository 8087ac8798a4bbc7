// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <filesystem>
#include <optional>
#include <string>

#include "descriptions.h"
#include "speed/command.h"
#include "speed/raw_puts.h"
#include "speed/sections.h"
#include "speed/slapd.h"

namespace rdm::bench {
namespace {

namespace fs = std::filesystem;

/// Loads makes catalogs from the same descriptions, by turns.
class Loads {
 public:
  explicit Loads(const Stage &stage) : stage_(stage), descriptions_(files_.path("rds.soif")) {
    write_descriptions(descriptions_, 0, stage.records());
    if (SlapdDirectory::installed()) directory_.emplace(stage.records());
    rounds_.add("raw", [this] { return load_raw(); });
    if (directory_) rounds_.add("slapd", [this] { return load_slapd(); });
    rounds_.add("load", [this] { return load(); });
    rounds_.run(stage.options().rounds);
  }

  std::vector<Row> rows() {
    Row row{
        "load + index, one delivery",   duration(*rounds_.seconds("load")) + ", CPU " + duration(*rounds_.cpu("load")),
        rounds_.ratio("load", "raw"),   {},
        rounds_.ratio("load", "slapd"), {}};
    row.limits.push_back(at_most(row.slapd, 0.6, " x slapd"));
    return {std::move(row), row_of_calls()};
  }

 private:
  std::string database() const { return files_.path("new/load.db"); }

  std::string command() const {
    const std::string tool = minidba(database());
    return tool + " update < " + descriptions_ + " && " + tool + " index";
  }

  /// clear removes what the loads before have made, and has everything on the disk: what they have left to write would
  /// slow the next. All loads thus begin with memory that was just freed; on a virtual machine, other memory may have
  /// to come from the host, which takes longer than a whole load.
  void clear() const {
    if (directory_) directory_->clear();
    fs::remove_all(files_.path("new"));
    fs::create_directory(files_.path("new"));
    ::sync();
  }

  Cost load() const {
    clear();
    return cost_of(command());
  }

  Cost load_raw() const {
    clear();
    return cost_of_raw_puts(stage_.site().database(), database(), stage_.records());
  }

  Cost load_slapd() const {
    clear();
    return cost_of(directory_->load_command());
  }

  Row row_of_calls() const {
    clear();
    const std::optional<std::uint64_t> calls = system_calls(command());
    Row row{"load + index, system calls a record", "", {}, {}, {}, {}};
    std::optional<double> each;
    if (calls) each = static_cast<double>(*calls) / static_cast<double>(stage_.records());
    row.measured = each ? number(*each) : "not counted";
    row.limits.push_back(at_most(each, 2, ""));
    return row;
  }

  const Stage &stage_;
  support::TemporaryDirectory files_;
  std::string descriptions_;
  std::optional<SlapdDirectory> directory_;
  Rounds rounds_;
};

}  // namespace

std::vector<Row> load_rows(const Stage &stage) {
  if (!stage.options().wants("load")) return {};
  return Loads(stage).rows();
}

}  // namespace rdm::bench
