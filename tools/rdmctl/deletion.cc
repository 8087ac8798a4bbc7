#include "tools/rdmctl/deletion.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <ostream>
#include <sstream>

#include "tools/common/escaped.h"
#include "tools/minidba/exchange.h"
#include "tools/minidba/failure.h"
#include "tools/minidba/soif_stream.h"
#include "tools/minidba/verbs.h"

namespace rdmctl {
namespace {

using minidba::SoifStream;

/// lines_from returns the lines of a file behind an offset, without blanks at their ends; empty ones are left out.
std::vector<std::string> lines_from(const std::string &path, int64_t offset) {
  std::ifstream file(path);
  file.seekg(offset);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    const size_t first = line.find_first_not_of(" \t\r");
    if (first != std::string::npos) lines.push_back(line.substr(first, line.find_last_not_of(" \t\r") - first + 1));
  }
  return lines;
}

minidba::Options options_for(const std::string &verb, const std::string &database) {
  minidba::Options options;
  options.verb = verb;
  options.database = database;
  options.index = database + ".idx";
  options.quiet = true;
  return options;
}

/// run runs a verb of minidba and returns what it prints.
std::string run(minidba::Verb verb, const minidba::Options &options, std::ostream &errors) {
  std::ostringstream out;
  verb(options, {STDIN_FILENO, out, errors, false, false});
  return out.str();
}

void list_unclassified(const std::string &database, std::ostream &errors) {
  const size_t slash = database.rfind('/');
  if (slash == std::string::npos) return;
  const std::string path = database.substr(0, slash) + "/unclassified";
  ::unlink(path.c_str());
  std::ofstream file(path);
  file << run(minidba::unclassified, options_for("unclassified", database), errors);
  if (!file.flush()) throw minidba::system_failure("cannot write " + path);
}

}  // namespace

Named named_in(const std::string &path, const std::string &name, std::ostream &errors) {
  const file_guard file = minidba::open_file(path, O_RDONLY);
  if (!file) throw minidba::system_failure("cannot read " + name);
  SoifStream stream(
      file.get(), path, [](int64_t) {}, name);
  Named named;
  int64_t header_end = 0;
  while (const auto item = stream.next()) {
    const std::string reason = minidba::refusal(*item);
    if (minidba::is_header(*item)) {
      header_end = item->end;
    } else if (reason.empty()) {
      named.urls.emplace_back(item->object->url);
    } else {
      ++named.rejected;
      errors << "rdmctl: " << tools::escaped(name) << ": line " << stream.line_of(item->offset) << ": object "
             << item->number << " rejected: " << tools::escaped(reason) << '\n';
    }
  }
  if (named.urls.empty() && named.rejected == 0) named.urls = lines_from(path, header_end);
  return named;
}

int64_t delete_from(const std::string &database, const std::vector<std::string> &urls, std::ostream &errors) {
  minidba::Options options = options_for("delete", database);
  options.arguments = urls;
  options.urls_only = true;
  const std::string deleted = run(minidba::delete_descriptions, options, errors);
  run(minidba::expire, options_for("expire", database), errors);
  run(minidba::index, options_for("index", database), errors);
  list_unclassified(database, errors);
  return std::strtoll(deleted.c_str(), nullptr, 10);
}

}  // namespace rdmctl
