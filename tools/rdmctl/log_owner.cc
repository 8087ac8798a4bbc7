// SPDX-License-Identifier: MIT
#include "tools/rdmctl/log_owner.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <ostream>
#include <vector>

#include "catalog/os/error.h"
#include "catalog/os/file.h"
#include "qxapi/escaped.h"
#include "qxapi/line_reader.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

struct Log {
  std::string path;
  struct stat status;
};

/// settings returns the pairs of the configuration up to the first error, which the service will report.
PblockPtr settings(const std::string &config) {
  constexpr int slots = 15, reader_size = 4096;
  PblockPtr pairs(host_param_create(slots));
  if (!pairs) throw std::bad_alloc();
  LineReader reader(config.c_str(), reader_size);
  while (const char *line = reader ? reader.next() : nullptr)
    if (host_param_parse(line, pairs.get()) < 0) break;
  return pairs;
}

/// log_of returns the log file that a key names, if it exists.
std::optional<Log> log_of(const pblock *settings, const char *key) {
  const char *value = host_param_find(key, settings);
  const std::string path = value != nullptr ? value : "";
  if (path.empty() || path == "stdout" || path == "stderr") return std::nullopt;
  const auto status = catalog::status_of(path);
  return status ? std::optional<Log>({path, *status}) : std::nullopt;
}

bool is_nobody(uid_t user) {
  const struct passwd *nobody = ::getpwnam("nobody");
  return nobody != nullptr && nobody->pw_uid == user;
}

std::string name_of(uid_t user) {
  const struct passwd *account = ::getpwuid(user);
  return account != nullptr ? account->pw_name : "user " + std::to_string(user);
}

/// become takes the user, group and supplementary groups of the owner of a log, for the rest of the process.
void become(const Log &log) {
  const std::string what = "cannot run as " + name_of(log.status.st_uid) + ", who owns " + log.path;
  const struct passwd *account = ::getpwuid(log.status.st_uid);
  const gid_t group = account != nullptr ? account->pw_gid : log.status.st_gid;
  const int groups = account != nullptr ? ::initgroups(account->pw_name, group) : ::setgroups(0, nullptr);
  if (groups != 0 || ::setgid(group) != 0 || ::setuid(log.status.st_uid) != 0) throw catalog::system_failure(what);
}

void require_writable_log(const std::string &path) {
  const std::string what = "cannot write " + path + " as " + name_of(::geteuid());
  if (::access(path.c_str(), W_OK) != 0) throw catalog::system_failure(what);
}

}  // namespace

void become_log_owner(const std::string &config, std::ostream &errors) {
  if (::geteuid() != 0) return;
  const PblockPtr pairs = settings(config);
  const std::optional<Log> transactions = log_of(pairs.get(), "logfile");
  const std::optional<Log> diagnostics = log_of(pairs.get(), "debug-logfile");
  std::vector<Log> foreign;
  if (transactions && transactions->status.st_uid != 0) foreign.push_back(*transactions);
  if (diagnostics && diagnostics->status.st_uid != 0 && (!foreign.empty() || !is_nobody(diagnostics->status.st_uid)))
    foreign.push_back(*diagnostics);
  if (foreign.empty()) return;
  const Log &log = foreign.front();
  const std::string owner = name_of(log.status.st_uid);
  if (foreign.back().status.st_uid != log.status.st_uid)
    throw Failure(log.path + " belongs to " + owner + ", but " + foreign.back().path + " to " +
                  name_of(foreign.back().status.st_uid) + ": run rdmctl as the user who runs the service");
  errors << "rdmctl: " << escaped(log.path) << " belongs to " << owner << ": running as " << owner << std::endl;
  become(log);
  for (const auto &each : {transactions, diagnostics})
    if (each) require_writable_log(each->path);
}

}  // namespace rdm::rdmctl
