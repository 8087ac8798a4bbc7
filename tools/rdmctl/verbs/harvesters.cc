// SPDX-License-Identifier: MIT
#include <algorithm>
#include <charconv>
#include <fstream>
#include <map>
#include <optional>
#include <ostream>

#include <libcs/cs.h>

#include "catalog/os/error.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/common/time_text.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::Failure;

/// Line is a line of the transaction log: CLIENT - - [TIME] "MESSAGE" SECOND BYTES.
struct Line {
  std::string_view client, message, bytes;
  time_t time;
};

/// take returns the text up to `end` and moves `text` after it, or std::nullopt if `end` does not follow.
std::optional<std::string_view> take(std::string_view &text, std::string_view end) {
  const size_t at = text.find(end);
  if (at == std::string_view::npos) return std::nullopt;
  const std::string_view taken = text.substr(0, at);
  text.remove_prefix(at + end.size());
  return taken;
}

/// time_of reads "23/Nov/2026:02:14:33 -0000". Returns 0 for another text.
time_t time_of(std::string_view text) {
  std::string words(text);
  if (const size_t colon = words.find(':'); colon != std::string::npos) words[colon] = ' ';
  time_t time = 0;
  return cs_str2time(words.c_str(), &time);
}

std::optional<Line> parse(std::string_view text) {
  const auto client = take(text, " - - [");
  const auto time = client ? take(text, "] \"") : std::nullopt;
  const size_t quote = text.rfind("\" ");
  if (!time || quote == std::string_view::npos) return std::nullopt;
  const std::string_view message = text.substr(0, quote), fields = text.substr(quote + 2);
  const time_t seconds = time_of(*time);
  const size_t space = fields.find(' ');
  if (seconds == 0 || space == std::string_view::npos) return std::nullopt;
  return Line{*client, message, fields.substr(space + 1), seconds};
}

/// Harvester is what one client has asked for.
struct Harvester {
  int64_t harvests = 0, descriptions = 0, bytes = 0;
  int64_t failed = 0;   // harvests for which the catalog could not be read
  int64_t refused = 0;  // messages that are not allowed
  time_t first = 0, last = 0, last_success = 0;
  std::string since;  // of the last success; empty for all
};

std::optional<int64_t> number_at(std::string_view text) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() ? std::optional(number) : std::nullopt;
}

/// take_harvest counts a harvest. A failed one has no bytes, and the number that it asked for.
void take_harvest(const Line &line, std::string_view since, Harvester &harvester) {
  ++harvester.harvests;
  const int64_t bytes = number_at(line.bytes).value_or(0);
  if (bytes == 0) {
    ++harvester.failed;
    return;
  }
  harvester.bytes += bytes;
  harvester.descriptions += number_at(line.message).value_or(0);
  if (line.time < harvester.last_success) return;
  harvester.last_success = line.time;
  harvester.since = since;
}

/// count adds a line to its client. Lines about other requests are passed over.
void count(const Line &line, std::map<std::string, Harvester> &clients) {
  constexpr std::string_view sent = " RDs Transfered", since = " since ", illegal = "STATUS Illegal sent";
  const size_t at = line.message.find(sent);
  const bool is_harvest = at != std::string_view::npos && number_at(line.message).has_value();
  if (!is_harvest && line.message != illegal) return;
  Harvester &harvester = clients[std::string(line.client)];
  harvester.first = harvester.first == 0 ? line.time : std::min(harvester.first, line.time);
  harvester.last = std::max(harvester.last, line.time);
  if (!is_harvest) {
    ++harvester.refused;
    return;
  }
  const std::string_view rest = line.message.substr(at + sent.size());
  take_harvest(line, rest.starts_with(since) ? rest.substr(since.size()) : "", harvester);
}

/// ReadLog is what was read of the transaction logs.
struct ReadLog {
  std::map<std::string, Harvester> clients;
  int64_t unknown = 0;  // lines that are not lines of a transaction log
};

void read(const std::string &path, time_t from, ReadLog &log) {
  std::ifstream file(path);
  if (!file) throw catalog::system_failure("cannot read " + path);
  for (std::string text; std::getline(file, text);) {
    const auto line = parse(text);
    if (!line)
      ++log.unknown;
    else if (line->time >= from)
      count(*line, log.clients);
  }
  if (file.bad()) throw catalog::system_failure("cannot read " + path);
}

Json json_of(const std::string &client, const Harvester &harvester) {
  const auto time = [](time_t value) { return value == 0 ? Json() : Json(iso_time(value)); };
  return {{"client", client},
          {"harvests", harvester.harvests},
          {"descriptions", harvester.descriptions},
          {"bytes", harvester.bytes},
          {"failed", harvester.failed},
          {"refused", harvester.refused},
          {"first", time(harvester.first)},
          {"last", time(harvester.last)},
          {"last-success", time(harvester.last_success)},
          {"since", harvester.since.empty() ? Json() : Json(harvester.since)}};
}

void show(const std::string &client, const Harvester &harvester, std::ostream &out) {
  out << escaped(client) << ": " << counted(harvester.harvests, "harvest") << ", "
      << counted(harvester.descriptions, "description") << ", " << counted(harvester.bytes, "byte") << ", "
      << harvester.failed << " failed, " << harvester.refused << " refused, from " << iso_time(harvester.first)
      << " to " << iso_time(harvester.last) << ", last success ";
  if (harvester.last_success == 0)
    out << "never\n";
  else
    out << iso_time(harvester.last_success) << ": "
        << (harvester.since.empty() ? "all" : "since " + escaped(harvester.since)) << '\n';
}

std::vector<std::string> logs_of(const Options &options) {
  if (!options.files.empty()) return options.files;
  if (options.config.empty()) throw Failure("no transaction log: name one, or the configuration with --config");
  const std::string log = setting_of(options.config, "logfile");
  if (log.empty()) throw Failure("no logfile in " + options.config);
  return {log};
}

}  // namespace

int harvesters(const Options &options, std::ostream &out, std::ostream &errors) {
  const time_t from = options.since.empty() ? 0 : tools::read_time(options.since, std::time(nullptr));
  ReadLog log;
  for (const std::string &path : logs_of(options)) read(path, from, log);
  if (log.unknown > 0) say(errors, counted(log.unknown, "line is", "lines are") + " not of a transaction log");
  Json rows = Json::array();
  for (const auto &[client, harvester] : log.clients)
    options.json ? rows.push_back(json_of(client, harvester)) : show(client, harvester, out);
  if (options.json) out << text_of(rows) << '\n';
  return log.unknown == 0 ? exit_done : exit_incomplete;
}

}  // namespace rdm::rdmctl
