// SPDX-License-Identifier: MIT
#include <filesystem>
#include <ostream>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/import_report.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/publishing.h"
#include "tools/rdmctl/spool.h"
#include "tools/rdmctl/target.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

Feed feed_of(const Options &options) {
  Feed feed;
  feed.max_delete = Limit(options.max_delete);
  feed.database = database_of(options.target, options.config);
  feed.files = options.files;
  feed.is_full = options.full_feed;
  feed.wait = options.wait;
  feed.is_strict = options.strict;
  feed.dry_run = options.dry_run;
  feed.shows_progress = shows_progress(options);
  return feed;
}

/// keep appends a report, and returns false, after a message, if it cannot.
bool keep(const Feed &feed, const Json &report, std::ostream &errors) {
  if (feed.dry_run) return true;
  try {
    append_report(feed.database, report);
    return true;
  } catch (const Failure &failure) {
    say(errors, std::string("the report is not kept: ") + failure.what());
    return false;
  }
}

/// validator_of returns the validator of a catalog service. Throws a Failure if it has neither schema nor taxonomy.
Validator validator_of(const Options &options) {
  if (options.config.empty()) throw Failure("--validate needs a catalog service: name the configuration with --config");
  const std::string schema = file_of_service(options.config, options.target, "schema-description");
  const std::string taxonomy = file_of_service(options.config, options.target, "taxonomy-description");
  if (schema.empty() && taxonomy.empty())
    throw Failure("catalog service " + options.target + " has neither schema-description nor taxonomy-description in " +
                  options.config);
  return Validator(schema, taxonomy);
}

void show(const Options &options, Json report, std::ostream &out) {
  if (options.json) {
    report["dry-run"] = options.dry_run;
    out << text_of(report) << std::endl;
  } else if (!report.contains("failure")) {
    const char *separator = options.dry_run ? "dry run: " : "";
    for (const char *name : {"new", "changed", "unchanged", "deleted", "expired", "rejected"}) {
      out << separator << report[name] << ' ' << name;
      separator = ", ";
    }
    out << std::endl;
  }
}

/// publish_feed publishes a feed, keeps and shows the report, and returns the exit status. It passes Failures on after
/// it has reported them.
int publish_feed(const Feed &feed, const Options &options, std::ostream &out, std::ostream &errors) {
  Publication result;
  try {
    publish(feed, result, errors);
  } catch (const Failure &failure) {
    const Json report = report_of(result, options.from, feed.is_full, failure.what());
    if (!result.inputs.empty() && catalog::status_of(feed.database)) keep(feed, report, errors);
    show(options, report, out);
    throw;
  }
  if (result.keeps_absent) say(errors, "nothing is deleted: the URL of a rejected object is not known");
  const Json report = report_of(result, options.from, feed.is_full, "");
  const bool is_whole = result.summary.rejected == 0 && !result.keeps_absent && !result.has_stray_text;
  const int status = keep(feed, report, errors) && is_whole ? exit_done : exit_incomplete;
  return show_change(out, errors, status, [&] { show(options, report, out); });
}

/// publish_file publishes a file of a spool and moves it. Returns the exit status.
int publish_file(const Spool &spool, const std::string &name, Feed feed, const Options &options, std::ostream &out,
                 std::ostream &errors) {
  feed.files = {spool.path(name)};
  const auto taken = catalog::status_of(spool.path(name));
  const auto move = [&](const std::string &subdirectory) {
    if (!feed.dry_run && taken) spool.move(name, *taken, subdirectory);
  };
  try {
    const int status = publish_feed(feed, options, out, errors);
    move(Spool::done);
    return status;
  } catch (const Unfit &failure) {
    say(errors, spool.path(name) + ": " + failure.what());
    move(Spool::rejected);
    return exit_incomplete;
  }
}

/// require_apart throws a Failure if the database lies in the spool directory, from which it would be taken.
void require_apart(const std::string &database, const std::string &spool) {
  std::error_code ignored;
  if (std::filesystem::equivalent(catalog::directory_of(database), spool, ignored))
    throw Failure("the catalog lies in the directory of --spool: " + spool);
}

/// publish_spool stops at a Failure that is not the file's own: the next run begins with the same file.
int publish_spool(const Feed &feed, const Options &options, std::ostream &out, std::ostream &errors) {
  require_apart(feed.database, options.spool);
  const Spool spool(options.spool);
  if (!feed.dry_run) spool.make_subdirectories();
  int status = exit_done;
  for (const std::string &name : spool.files())
    status = std::max(status, publish_file(spool, name, feed, options, out, errors));
  return status;
}

/// is_replaced returns true if a path leads to another file than before.
bool is_replaced(const std::optional<struct stat> &before, const std::string &path) {
  const auto now = catalog::status_of(path);
  return now.has_value() != before.has_value() || (now && now->st_ino != before->st_ino);
}

}  // namespace

int publish(const Options &options, std::ostream &out, std::ostream &errors) {
  Feed feed = feed_of(options);
  std::optional<Validator> validator;
  if (options.validate) feed.validator = &validator.emplace(validator_of(options));
  const auto before = catalog::status_of(feed.database);
  try {
    return options.spool.empty() ? publish_feed(feed, options, out, errors) : publish_spool(feed, options, out, errors);
  } catch (const Failure &failure) {
    if (!is_replaced(before, feed.database)) throw;
    say(errors, failure.what());
    return exit_incomplete;
  }
}

}  // namespace rdm::rdmctl
