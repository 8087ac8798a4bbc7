// SPDX-License-Identifier: MIT
#include <algorithm>
#include <fstream>
#include <iostream>

#include "catalog/os/atomic_writer.h"
#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "catalog/stream/soif_stream.h"
#include "hosts/rdmd/check/csid.h"
#include "hosts/rdmd/check/description.h"
#include "qxapi/ascii.h"
#include "qxapi/temporary_directory.h"
#include "tools/rdmctl/class_order.h"
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

constexpr char description_name[] = "the description";

/// faults_of_classes returns what rdmctl taxonomy check finds of the classes.
std::vector<std::string> faults_of_classes(const std::string &message) {
  catalog::ScratchFile file(std::string(named_temporary_directory()) + "/rdmctl");
  file.append(message);
  catalog::SoifStream stream(
      file.descriptor(), "", [](int64_t) {}, description_name);
  return class_faults(stream);
}

/// check_option checks the CSID for the header. A control character comes from a mistake in a script.
void check_option(const std::string &csid, check::Report report) {
  if (std::any_of(csid.begin(), csid.end(), ascii::is_control))
    report.error(0, check::quote(csid) + " has a control character");
  else
    check::check_csid(csid, 0, report);
}

/// check writes the findings of the checkers to `errors`. Throws a Failure if one is an error.
void check(const Options &options, const std::string &message, std::ostream &errors) {
  check::Findings findings;
  check::Report report(description_name, findings);
  if (!options.csid.empty()) check_option(options.csid, report.on("--csid"));
  check::check_description_text(options.action + "-description", message, report);
  for (const check::Finding &finding : findings) errors << "rdmctl: " << describe(finding) << '\n';
  std::vector<std::string> faults;
  if (options.action == "taxonomy" && !has_errors(findings)) faults = faults_of_classes(message);
  for (const std::string &fault : faults) say(errors, fault);
  if (has_errors(findings) || !faults.empty()) throw Failure("nothing is written");
}

}  // namespace

int describe(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string message = read(options);
  check(options, message, errors);
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
