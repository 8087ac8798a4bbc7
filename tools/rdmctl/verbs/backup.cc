// SPDX-License-Identifier: MIT
#include <algorithm>
#include <filesystem>
#include <ostream>

#include "catalog/hash/statistics.h"
#include "catalog/transaction.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/rdmctl/import_report.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/target.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Catalog;
using catalog::Failure;
using catalog::Lock;

/// files_beside returns the paths of the files that belong to a database.
std::vector<std::string> files_beside(const std::string &database) {
  return {catalog::UrlMap::path_for(database), catalog::index_path(database), Lock::path_for(database),
          imports_path(database)};
}

/// is_catalog returns true if a database has files that belong to it. A lock proves nothing: a command that is
/// killed leaves one beside any file that it was told to be a database.
bool is_catalog(const std::string &database) {
  const std::vector<std::string> files = files_beside(database);
  return std::any_of(files.begin(), files.end(), [&](const std::string &file) {
    return file != Lock::path_for(database) && catalog::status_of(file);
  });
}

/// check_backup_target throws a Failure if a file exists that is no backup. It is not replaced.
void check_backup_target(const std::string &file) {
  const auto status = catalog::status_of(file);
  if (!status || status->st_size == 0) return;
  if (is_catalog(file)) throw Failure(file + " is the database of a catalog: name another file");
  try {
    if (Catalog(file).table().trailer()) return;
  } catch (const Failure &) {
    // It is no catalog file at all.
  }
  throw Failure(file + " exists and is no backup: name another file");
}

/// check_restore_target throws a Failure if a file exists that is not the database of a catalog, sound or damaged.
void check_restore_target(const std::string &database) {
  if (catalog::status_of(database) && !is_catalog(database))
    throw Failure(database +
                  " exists, and no index or URL map is beside it: it is not the database of a catalog; move it away");
}

/// check_file throws a Failure if a backup would be written over a file of the catalog, or over a directory or device.
void check_file(const std::string &file, const std::string &database) {
  std::error_code ignored;
  std::vector<std::string> files = files_beside(database);
  files.push_back(database);
  for (const std::string &own : files)
    if (file == own || std::filesystem::equivalent(file, own, ignored))
      throw Failure(file + " belongs to the catalog: name another file");
  if (file == "-") throw Failure("a backup is a file: name one");
  if (const auto status = catalog::status_of(file); status && !S_ISREG(status->st_mode))
    throw Failure("not a regular file: " + file);
}

Lock lock_of(const std::string &database, const Options &options, std::ostream &errors) {
  return Lock(database, options.wait, [&errors](const std::string &text) { say(errors, text); });
}

/// open opens a catalog with the index that it has now: between two renames of a writer, the index would be of another
/// state.
Catalog open(const std::string &database, const Options &options, std::ostream &errors) {
  if (!catalog::status_of(database)) throw Failure("no such database: " + database);
  Lock lock = lock_of(database, options, errors);
  Catalog opened = catalog::open_locked(&lock, database);
  opened.remember(known_records(opened));
  return opened;
}

void show(const Options &options, const std::string &file, std::ostream &out) {
  const auto descriptions = catalog::statistics_of(file).records;
  const auto bytes = catalog::status_of(file)->st_size;
  if (options.json)
    out << text_of({{"file", file}, {"descriptions", descriptions}, {"bytes", bytes}}) << '\n';
  else
    out << counted(descriptions, "description") << ", " << counted(bytes, "byte") << '\n';
}

}  // namespace

int backup(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string database = database_of(options.target, options.config);
  // A rename would replace a link.
  const std::string file = catalog::followed_link(options.other);
  check_file(file, database);
  check_backup_target(file);
  const Catalog opened = open(database, options, errors);
  {
    tools::Progress progress(errors, shows_progress(options), "rdmctl: writing");
    back_up(opened, file, shown_by(progress));
  }
  show(options, file, out);
  return exit_done;
}

int restore(const Options &options, std::ostream &out, std::ostream &errors) {
  const std::string database = database_of(options.target, options.config);
  check_file(options.other, database);
  check_restore_target(database);
  const Catalog opened(options.other);
  if (options.dry_run) {
    check_backup(opened);
  } else {
    const Lock lock = lock_of(database, options, errors);
    const auto used = catalog::status_of(database) ? catalog::used_numbers(database) : catalog::UsedNumbers();
    if (!used.damage.empty()) say(errors, used.damage + ": some of its used numbers may be unknown");
    tools::Progress progress(errors, shows_progress(options), "rdmctl: writing");
    catalog::restore(lock, opened, database, used, shown_by(progress));
  }
  const std::string &shown = options.dry_run ? options.other : database;
  return show_change(out, errors, exit_done, [&] { show(options, shown, out); });
}

}  // namespace rdm::rdmctl
