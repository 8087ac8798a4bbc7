// SPDX-License-Identifier: MIT
#include "tools/rdmgather/messages.h"

#include <ostream>

#include "qxapi/escaped.h"
#include "tools/soif/json_text.h"

namespace rdm::gather {

using soif_tool::shown_json_string;

void Messages::failed(const Fault &fault) {
  progress_.clear();
  const std::string path = fault.path.empty() ? options_.directory : fault.path;
  if (options_.json)
    console_.errors << "{\"file\":" << shown_json_string(path) << ",\"reason\":" << shown_json_string(fault.reason)
                    << "}\n";
  else
    console_.errors << "rdmgather: cannot read " << escaped(path + ": " + fault.reason) << '\n';
}

void Messages::deleted(const std::string &url) {
  progress_.clear();
  if (options_.json)
    console_.errors << "{\"deleted\":" << shown_json_string(url) << "}\n";
  else
    console_.errors << "rdmgather: deleted: " << url << '\n';
}

void Messages::finish(const Counts &counts) {
  progress_.clear();
  if (options_.json)
    console_.errors << "{\"described\":" << counts.described << ",\"unchanged\":" << counts.unchanged
                    << ",\"deleted\":" << counts.deleted << ",\"failed\":" << counts.failed << "}\n";
  else if (counts.failed > 0 && !options_.quiet)
    console_.errors << "rdmgather: " << counts.failed << " not read, " << counts.described << " described, "
                    << counts.unchanged << " unchanged, " << counts.deleted << " deleted\n";
}

}  // namespace rdm::gather
