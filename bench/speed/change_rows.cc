// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <qxapi/guard.h>

#include "descriptions.h"
#include "speed/command.h"
#include "speed/reader.h"
#include "speed/sections.h"

namespace rdm::bench {
namespace {

constexpr std::size_t most_changes = 1000;

/// read_and_forget reads a file and drops it from the memory of the system. What is measured next finds as much memory
/// that was just freed; other memory may cost a virtual machine more than the work itself (load_rows.cc).
void read_and_forget(const std::string &path) {
  const HostFileGuard file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::vector<char> block(1 << 20);
  while (::read(file.get(), block.data(), block.size()) > 0) continue;
  if (::posix_fadvise(file.get(), 0, 0, POSIX_FADV_DONTNEED) != 0) fail("cannot read " + path);
}

/// Changes updates 1 % of the catalog in each round, at most most_changes, and asks the server at once.
class Changes {
 public:
  explicit Changes(const Stage &stage)
      : stage_(stage),
        count_(std::min(stage.newest(), most_changes)),
        reader_(stage.port()),
        tool_(minidba(stage.site().database())) {
    cost_of(copy_to(spare()));
    rounds_.add("update", [this] { return update(); });
    rounds_.add("status", [this] { return first_answer(status_target); });
    rounds_.add("one", [this] { return first_answer(std::string(harvest_target) + "&view-hits=1"); });
    rounds_.add("copy", [this] { return copy(); });
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
    ::sync();
    read_and_forget(spare());
    const Cost cost = cost_of(tool_ + " update < " + descriptions);
    cost_of(tool_ + " index");
    return cost;
  }

  Cost first_answer(const std::string &target) {
    reader_.connect();
    return cost_of_single_work(stage_.server().pid(), [&] { reader_.ask(target); });
  }

  Cost copy() const {
    const std::string path = stage_.site().path("copy.db");
    std::filesystem::remove(path);
    ::sync();
    read_and_forget(spare());
    return cost_of(copy_to(path) + " && sync " + path);
  }

  /// copy_to returns a command that copies the database. It writes as many bytes as an update: left to itself, cp looks
  /// for zeros and leaves holes of a page.
  std::string copy_to(const std::string &path) const {
    return "cp --sparse=never " + stage_.site().database() + " " + path;
  }

  /// spare returns the path of a file of the database's size.
  std::string spare() const { return stage_.site().path("spare.db"); }

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
