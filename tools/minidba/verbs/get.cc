// SPDX-License-Identifier: MIT
#include <ostream>

#include "qxapi/escaped.h"
#include "qxapi/number.h"
#include "tools/minidba/input.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/describe.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
namespace {

struct Found {
  uint32_t number;
  std::string record;
};

std::optional<Found> find(const Catalog &catalog, std::optional<uint32_t> number) {
  std::optional<std::string> record = number ? catalog.get(*number) : std::nullopt;
  return record ? std::optional<Found>({*number, std::move(*record)}) : std::nullopt;
}

/// find looks a word up as a number first, then as a URL.
std::optional<Found> find(const Catalog &catalog, const std::string &word) {
  std::optional<Found> found = find(catalog, parse_number<uint32_t>(word));
  return found ? found : find(catalog, catalog.number_of(word));
}

void show(const Catalog &catalog, const Found &found, bool json, std::ostream &out) {
  if (json)
    out << text_of(json_of(found.number, parse_record(catalog, found.number, found.record).get())) << '\n';
  else
    out << found.record;
}

/// show_word prints the description that a word names. Returns false if there is none.
bool show_word(const Catalog &catalog, const std::string &word, const Options &options, const Console &console) {
  const std::optional<Found> found = find(catalog, word);
  if (found)
    show(catalog, *found, options.json, console.out);
  else
    console.errors << "minidba: no description " << escaped(word) << '\n';
  return found.has_value();
}

}  // namespace

int get(const Options &options, const Console &console) {
  const Catalog catalog = open_to_read(options, console);
  int status = status_of_work(catalog);
  each_word(options, console, [&](const std::string &word) {
    if (!show_word(catalog, word, options, console)) status = exit_found_fault;
  });
  return status;
}

}  // namespace rdm::minidba
