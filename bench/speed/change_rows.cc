// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "descriptions.h"
#include "speed/command.h"
#include "speed/reader.h"
#include "speed/sections.h"

namespace rdm::bench {
namespace {

constexpr std::size_t most_changes = 1000;

/// Changes copies the catalog in each round, updates 1 % of it, at most most_changes, and asks the server at once. Both
/// begin with as much memory that was just freed (load_rows.cc says why): the copy with that of the database before the
/// last update, which the server no longer holds, and the update with that of the copy.
class Changes {
 public:
  explicit Changes(const Stage &stage)
      : stage_(stage),
        count_(std::min(stage.newest(), most_changes)),
        reader_(stage.port()),
        tool_(minidba(stage.site().database())) {
    rounds_.add("copy", [this] { return copy(); });
    rounds_.add("update", [this] { return update(); });
    rounds_.add("status", [this] { return first_answer(status_target); });
    rounds_.add("one", [this] { return first_answer(std::string(harvest_target) + "&view-hits=1"); });
    rounds_.run(stage.options().rounds);
  }

  Row row_of_update() const {
    Row row{"update of " + count(count_),
            duration(*rounds_.seconds("update")) + ", CPU " + duration(*rounds_.cpu("update")) + "; cp + sync " +
                duration(*rounds_.seconds("copy")),
            {},
            {},
            {},
            {}};
    row.limits.push_back(at_most(rounds_.ratio("update", "copy"), 1.3, " x (cp + sync)"));
    return row;
  }

  Row row_of_first(const std::string &title, const std::string &name, Sizes &sizes) const {
    const double seconds = *rounds_.seconds(name);
    Row row{title, duration(seconds) + ", CPU " + duration(*rounds_.cpu(name)), {}, {}, {}, {}};
    if (const auto reference = sizes.against_reference("first " + name, stage_.records(), seconds))
      row.limits.push_back(at_most((seconds - *reference) * 1e3, 100, " ms more than at 20,000"));
    return row;
  }

 private:
  /// update changes descriptions and indexes them; the cost is that of the change alone.
  Cost update() {
    const std::string descriptions = stage_.site().path("changes.soif");
    std::filesystem::remove(descriptions);
    write_descriptions(descriptions, 0, count_, ++edition_);
    std::filesystem::remove(copy_path());
    ::sync();
    const Cost cost = cost_of(tool_ + " update < " + descriptions);
    cost_of(tool_ + " index");
    return cost;
  }

  Cost first_answer(const std::string &target) {
    reader_.connect();
    return cost_of_single_work(stage_.server().pid(), [&] { reader_.ask(target); });
  }

  Cost copy() const {
    ::sync();
    return cost_of("cp " + stage_.site().database() + " " + copy_path() + " && sync " + copy_path());
  }

  std::string copy_path() const { return stage_.site().path("copy.db"); }

  const Stage &stage_;
  std::size_t count_;  // of changes in an update
  Reader reader_;
  std::string tool_;
  std::size_t edition_ = 0;
  Rounds rounds_;
};

}  // namespace

std::vector<Row> change_rows(const Stage &stage, Sizes &sizes) {
  const bool update = stage.options().wants("update"), change = stage.options().wants("change");
  if (!update && !change) return {};
  const Changes changes(stage);
  std::vector<Row> all;
  if (update) all.push_back(changes.row_of_update());
  if (change) {
    all.push_back(changes.row_of_first("first status after a change", "status", sizes));
    all.push_back(changes.row_of_first("first single RD after a change", "one", sizes));
  }
  return all;
}

}  // namespace rdm::bench
