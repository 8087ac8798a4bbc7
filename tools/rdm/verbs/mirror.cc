// SPDX-License-Identifier: MIT
#include "tools/rdm/mirror.h"

#include <filesystem>
#include <ostream>

#include <nlohmann/json.hpp>

#include "catalog/record.h"
#include "qxapi/escaped.h"
#include "tools/rdm/error.h"
#include "tools/rdm/verbs/verbs.h"

namespace rdm::client {
namespace {

/// followed returns the absolute path of a target, without symbolic links: a database is replaced, and a link must
/// stay. The path of a directory ends in a slash.
std::string followed(const std::string &target) {
  std::error_code error;
  // weakly_canonical leaves a relative path relative if nothing of it exists.
  std::string path = std::filesystem::absolute(target, error).string();
  if (!error) path = std::filesystem::weakly_canonical(path, error).string();
  if (error) throw Failure("cannot follow " + target + ": " + error.message());
  const bool is_directory = target.ends_with('/') || std::filesystem::is_directory(path, error);
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return is_directory ? path + "/" : path;
}

void report_json(const Mirror &mirror, const Changes &changes, std::ostream &out) {
  const nlohmann::ordered_json object{{"verb", "mirror"},
                                      {"new", changes.added},
                                      {"changed", changes.changed},
                                      {"held", mirror.held()},
                                      {"rejected", changes.rejected.size()},
                                      {"compared", mirror.is_full() && mirror.is_settled()},
                                      {"gone", changes.gone}};
  out << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

void report(const Mirror &mirror, const Changes &changes, const State &state, const Console &console) {
  console.errors << "rdm: " << changes.added << " new, " << changes.changed << " changed, ";
  if (mirror.is_full())
    console.errors << changes.gone.size() << " gone, ";
  else
    console.errors << "what is gone was compared at " << catalog::date_of(state.compared) << ", ";
  console.errors << mirror.held() << " held\n";
}

void warn(const Mirror &mirror, const Changes &changes, const Console &console) {
  for (const std::string &reason : changes.rejected) console.errors << "rdm: rejected: " << escaped(reason) << '\n';
  if (!mirror.is_settled())
    console.errors << "rdm: the catalog changes faster than it can be compared: the mirror may lack changes\n";
}

}  // namespace

int mirror(const Options &options, const Console &console) {
  Options resolved = options;
  resolved.target = followed(options.target);
  State state(resolved, "mirror to " + resolved.target);
  Server server(resolved, console);
  const std::unique_ptr<Target> target = open_target(resolved, console);
  Mirror mirror(resolved, console, server, *target, state);
  const Changes changes = mirror.run();
  warn(mirror, changes, console);
  if (resolved.json)
    report_json(mirror, changes, console.out);
  else
    for (const std::string &url : changes.gone) console.out << escaped(url) << '\n';
  if (!resolved.quiet && !resolved.json) report(mirror, changes, state, console);
  return changes.rejected.empty() && mirror.is_settled() ? exit_done : exit_partly;
}

}  // namespace rdm::client
