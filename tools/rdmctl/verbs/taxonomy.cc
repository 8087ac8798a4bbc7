// SPDX-License-Identifier: MIT
#include <fcntl.h>

#include <ostream>

#include "catalog/catalog.h"
#include "catalog/os/error.h"
#include "catalog/stream/soif_stream.h"
#include "hosts/rdmd/check/description.h"
#include "qxapi/ascii.h"
#include "qxapi/counted.h"
#include "qxapi/escaped.h"
#include "tools/rdmctl/class_order.h"
#include "tools/rdmctl/classes.h"
#include "tools/rdmctl/configuration.h"
#include "tools/rdmctl/output.h"
#include "tools/rdmctl/verbs/verbs.h"

namespace rdm::rdmctl {
namespace {

using catalog::ObjectView;

constexpr char key[] = "taxonomy-description";

Json json_of(const Class &one) {
  return {{"id", one.id},
          {"parent", one.parent.empty() ? Json() : Json(one.parent)},
          {"depth", one.depth},
          {"description", one.description}};
}

std::string line_of(const Class &one) {
  return escaped(one.id) + (one.description.empty() ? "" : ": " + escaped(one.description));
}

int show(const Classes &classes, const Options &options, std::ostream &out) {
  if (options.json) {
    Json list = Json::array();
    for (const Class &one : classes.all()) list.push_back(json_of(one));
    out << text_of({{"id", classes.id()}, {"classes", std::move(list)}}) << '\n';
    return exit_done;
  }
  out << escaped(classes.id()) << '\n';
  for (const Class &one : classes.all())
    out << std::string(2 * static_cast<size_t>(one.depth), ' ') << line_of(one) << '\n';
  return exit_done;
}

std::string lower(std::string text) {
  for (char &c : text) c = ascii::lower(c);
  return text;
}

/// find shows the classes whose id or description has a text, in any letter case. Returns exit_incomplete if none has.
int find(const Classes &classes, const Options &options, std::ostream &out) {
  const std::string wanted = lower(options.text);
  Json found = Json::array();
  int64_t count = 0;
  for (const Class &one : classes.all()) {
    if (lower(one.id + "\n" + one.description).find(wanted) == std::string::npos) continue;
    ++count;
    if (options.json)
      found.push_back(json_of(one));
    else
      out << line_of(one) << '\n';
  }
  if (options.json) out << text_of(found) << '\n';
  return count > 0 ? exit_done : exit_incomplete;
}

/// Faults is what check has found.
struct Faults {
  std::vector<std::string> texts;
  void add(const std::string &text) { texts.push_back(text); }
};

void check_order(const std::string &path, Faults &faults) {
  const HostFileGuard file = catalog::open_file(path, O_RDONLY);
  if (!file) throw catalog::system_failure("cannot read " + path);
  catalog::SoifStream stream(
      file.get(), path, [](int64_t) {}, path);
  for (const std::string &fault : class_faults(stream)) faults.add(fault);
}

/// check_catalog finds descriptions whose class does not exist.
void check_catalog(const Classes &classes, const std::string &database, Faults &faults) {
  const catalog::Catalog opened(database);
  opened.each([&](uint32_t number, std::string_view record) {
    const auto object = ObjectView::read(record);
    if (!object) throw opened.refused(number, record, "it is not a SOIF object");
    each_class_of(*object, [&](const std::string &id) {
      if (!classes.has(id)) faults.add(std::string(object->url()) + ": there is no class \"" + id + '"');
    });
  });
}

void check_answer(const std::string &path, Faults &faults) {
  check::Findings findings;
  check::Report report(path, findings);
  check::check_description(key, report);
  for (const check::Finding &finding : findings) faults.add(describe(finding));
}

/// check_classes checks the order of the classes, and the catalog of a service. Returns the number of classes.
size_t check_classes(const std::string &path, const Options &options, Faults &faults) try {
  const Classes classes(path);
  check_order(path, faults);
  const bool is_file = path == options.target;
  const std::string database = is_file ? "" : file_of_service(options.config, options.target, "catalog-database");
  if (!database.empty() && catalog::status_of(database)) check_catalog(classes, database, faults);
  return classes.all().size();
} catch (const catalog::SystemFailure &) {
  throw;
} catch (const catalog::Failure &failure) {
  faults.add(failure.what());
  return 0;
}

int check(const std::string &path, const Options &options, std::ostream &out) {
  Faults faults;
  check_answer(path, faults);
  const size_t classes = check_classes(path, options, faults);
  if (options.json)
    out << text_of({{"classes", classes}, {"faults", faults.texts}}) << '\n';
  else
    for (const std::string &text : faults.texts) out << escaped(text) << '\n';
  if (!options.json && faults.texts.empty()) out << "sound: " << counted(classes, "class", "classes") << '\n';
  return faults.texts.empty() ? exit_done : exit_incomplete;
}

}  // namespace

int taxonomy(const Options &options, std::ostream &out, std::ostream &) {
  const std::string path = description_file(options.target, options.config, key);
  if (options.action == "check") return check(path, options, out);
  const Classes classes(path);
  return options.action == "find" ? find(classes, options, out) : show(classes, options, out);
}

}  // namespace rdm::rdmctl
