// SPDX-License-Identifier: MIT
#include <fstream>
#include <iostream>

#include "catalog/os/atomic_writer.h"
#include "catalog/os/error.h"
#include "hosts/rdmd/check/description.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/plain_description.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

std::string read(const Options &options) {
  const bool is_standard = options.files.empty() || options.files.front() == "-";
  const PlainDescription wanted{options.action, options.csid, is_standard ? "the input" : options.files.front()};
  if (is_standard) return description_of(std::cin, wanted);
  std::ifstream file(wanted.name);
  if (!file) throw catalog::system_failure("cannot read " + wanted.name);
  return description_of(file, wanted);
}

/// check writes the findings of the checker to `errors`. Throws a Failure if one is an error.
void check(const std::string &kind, const std::string &message, std::ostream &errors) {
  check::Findings findings;
  check::Report report("the description", findings);
  check::check_description_text(kind + "-description", message, report);
  for (const check::Finding &finding : findings) errors << "rdmctl: " << describe(finding) << '\n';
  if (has_errors(findings)) throw Failure("nothing is written");
}

}  // namespace

int describe(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string message = read(options);
  check(options.action, message, errors);
  if (options.other.empty() || options.other == "-") {
    out << message;
    return exit_done;
  }
  catalog::AtomicWriter file(options.other);
  file.write(message);
  file.finish();
  file.commit();
  return exit_done;
}

}  // namespace rdm::rdmctl
