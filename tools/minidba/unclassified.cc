#include <ostream>

#include "tools/minidba/describe.h"
#include "tools/minidba/index_file.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/selection.h"
#include "tools/minidba/verbs.h"

namespace minidba {
namespace {

/// url_if_unclassified returns the URL of a description that has no classification.
std::optional<std::string> url_if_unclassified(const std::string &record, uint32_t number, const Catalog &catalog) {
  const soif_ptr object = view(catalog, number, record, {"classification"});
  bool classified = false;
  each_attribute(object.get(), [&](const AVPair &) { classified = true; });
  return classified ? std::nullopt : std::optional<std::string>(object->url);
}

}  // namespace

int unclassified(const Options &options, const Console &console) {
  const Catalog catalog = open_to_read(options, console);
  JsonList urls(console.out, options.json);
  for (const IndexEntry &entry : read_index(options.index)) {
    // The index may be older than the database.
    const std::optional<std::string> record = catalog.get(entry.number);
    const auto url = record ? url_if_unclassified(*record, entry.number, catalog) : std::nullopt;
    if (!url) continue;
    if (options.json)
      urls.add(*url);
    else
      console.out << *url << '\n';
  }
  urls.close();
  return status_of_work(catalog);
}

}  // namespace minidba
