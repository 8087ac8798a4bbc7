#include <unistd.h>

#include <ostream>
#include <utility>

#include "tools/common/escaped.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/input.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/report.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs.h"
#include "tools/minidba/writing.h"

namespace minidba {
namespace {

/// Deletion erases descriptions by number or URL and counts those that were not there.
class Deletion {
 public:
  Deletion(const Catalog &catalog, bool urls_only, std::ostream &errors)
      : catalog_(catalog), changes_(catalog), urls_only_(urls_only), errors_(errors) {}
  void take(const std::string &word) {
    if (const std::optional<Found> found = find(word)) {
      changes_.erase(found->number, found->url);
      ++deleted_;
    } else {
      errors_ << "minidba: no description " << tools::escaped(word) << '\n';
      ++absent_;
    }
  }
  const Changes &changes() const { return changes_; }
  int64_t deleted() const { return deleted_; }
  int64_t absent() const { return absent_; }

 private:
  struct Found {
    uint32_t number;
    std::string url;
  };

  std::optional<Found> find(const std::string &word) const {
    const std::optional<uint32_t> number = urls_only_ ? std::nullopt : decimal(word);
    if (const auto record = number ? changes_.get(*number) : std::nullopt)
      return Found{*number, whole(catalog_, *number, *record)->url};
    const std::optional<uint32_t> mapped = changes_.number_of(word);
    return mapped ? std::optional<Found>({*mapped, word}) : std::nullopt;
  }

  const Catalog &catalog_;
  Changes changes_;
  bool urls_only_;
  std::ostream &errors_;
  int64_t deleted_ = 0, absent_ = 0;
};

/// take_line passes a line on without the CR that some editors and mailers put at its end.
void take_line(std::string line, Deletion &deletion) {
  if (line.ends_with('\r')) line.pop_back();
  if (!line.empty()) deletion.take(line);
}

/// take_lines takes a number or URL from each line of standard input.
void take_lines(Deletion &deletion, const Options &options, const Console &console) {
  const Input input("-", options, console);
  std::string block(1 << 16, '\0'), line;
  for (;;) {
    const ssize_t got = uninterrupted([&] { return ::read(input.descriptor(), block.data(), block.size()); });
    if (got < 0) throw system_failure("cannot read " + input.name());
    if (got == 0) return take_line(line, deletion);
    for (const char c : std::string_view(block).substr(0, static_cast<size_t>(got)))
      c == '\n' ? take_line(std::exchange(line, {}), deletion) : line.push_back(c);
  }
}

}  // namespace

int delete_descriptions(const Options &options, const Console &console) {
  const Writing writing(options, console);
  Deletion deletion(writing.catalog(), options.urls_only, console.errors);
  for (const std::string &word : options.arguments)
    word == "-" && !options.urls_only ? take_lines(deletion, options, console) : deletion.take(word);
  writing.commit(deletion.changes(), writing.catalog().next_number(), console);
  std::vector<Figure> details{{"deleted", deletion.deleted()}, {"not there", deletion.absent()}};
  add_skipped(details, writing.catalog());
  report(options, console, {"deleted", deletion.deleted()}, details);
  return deletion.absent() == 0 ? status_of_work(writing.catalog()) : exit_found_fault;
}

}  // namespace minidba
