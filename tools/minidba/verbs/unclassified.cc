// SPDX-License-Identifier: MIT
#include <ostream>

#include "catalog/maintenance.h"
#include "tools/minidba/opening.h"
#include "tools/minidba/output/describe.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::minidba {
int unclassified(const Options &options, const Console &console) {
  const Catalog catalog = open_to_read(options, console);
  JsonList urls(console.out, options.json);
  each_unclassified(catalog, read_index(options.index), [&](const std::string &url) {
    if (options.json)
      urls.add(url);
    else
      console.out << url << '\n';
  });
  urls.close();
  return status_of_work(catalog);
}

}  // namespace rdm::minidba
