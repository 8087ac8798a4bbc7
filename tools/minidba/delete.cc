#include <iostream>
#include <ostream>

#include "tools/minidba/failure.h"
#include "tools/minidba/report.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

/// Deletion erases descriptions by URL and counts those that were not there.
class Deletion {
 public:
  Deletion(const Catalog &catalog, std::ostream &errors) : changes_(catalog), errors_(errors) {}
  void take(const std::string &url) {
    if (const std::optional<uint32_t> number = changes_.number_of(url)) {
      changes_.erase(*number, url);
      ++deleted_;
    } else {
      errors_ << "minidba: no description " << url << '\n';
      ++absent_;
    }
  }
  const Changes &changes() const { return changes_; }
  int64_t deleted() const { return deleted_; }
  int64_t absent() const { return absent_; }

 private:
  Changes changes_;
  std::ostream &errors_;
  int64_t deleted_ = 0, absent_ = 0;
};

/// take_lines takes a URL from each line of standard input.
void take_lines(Deletion &deletion) {
  std::string line;
  while (std::getline(std::cin, line))
    if (!line.empty()) deletion.take(line);
  if (std::cin.bad()) throw Failure("cannot read the input");
}

}  // namespace

int delete_descriptions(const Options &options, const Console &console) {
  const Writing writing(options, console);
  Deletion deletion(writing.catalog(), console.errors);
  for (const std::string &url : options.arguments) url == "-" ? take_lines(deletion) : deletion.take(url);
  writing.commit(deletion.changes(), writing.catalog().next_number(), console);
  report(options, console, {"deleted", deletion.deleted()},
         {{"deleted", deletion.deleted()}, {"not there", deletion.absent()}});
  return deletion.absent() == 0 ? exit_done : exit_found_fault;
}

}  // namespace minidba
