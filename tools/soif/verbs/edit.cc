// SPDX-License-Identifier: MIT
#include <ctime>
#include <filesystem>
#include <ostream>

#include "catalog/os/error.h"
#include "catalog/stream/importer.h"
#include "catalog/transaction.h"
#include "qxapi/escaped.h"
#include "tools/common/program.h"
#include "tools/soif/editor.h"
#include "tools/soif/input.h"
#include "tools/soif/soif_reader.h"

namespace rdm::soif_tool {
namespace {

using catalog::Catalog;
using catalog::Failure;

/// Stored is a description as the catalog has it.
struct Stored {
  uint32_t number;
  std::string record;
  bool operator==(const Stored &) const = default;
};

Stored find(const Catalog &catalog, const std::string &url) {
  const std::optional<uint32_t> number = catalog.number_of(url);
  std::optional<std::string> record = number ? catalog.get(*number) : std::nullopt;
  if (!record) throw Failure("no description of " + url + " in " + catalog.path());
  return {*number, std::move(*record)};
}

/// text_to_edit returns the text of a record without its time of change, which a commit sets.
std::string text_to_edit(const Catalog &catalog, const Stored &stored) {
  auto object = catalog::ObjectView::read(stored.record);
  if (!object) throw catalog.refused(stored.number, stored.record, "not a SOIF object");
  object->erase("rd-last-changed");
  return soif_of(description_of(*object));
}

/// Only takes the one description of a text.
class Only : public Taker {
 public:
  void take(Description &description, const Place &place, std::string_view) override {
    if (description_) return reject(place, "a second description", "");
    description_ = std::move(description);
  }
  void reject(const Place &place, const std::string &reason, std::string_view) override {
    if (fault_.empty()) fault_ = ":" + std::to_string(place.line) + ":" + std::to_string(place.column) + ": " + reason;
  }

  /// description returns the description of the text in a file. Throws a Failure.
  const Description &description(const std::string &file) const {
    if (!fault_.empty()) throw Failure(file + fault_);
    if (!description_) throw Failure(file + " has no description");
    return *description_;
  }

 private:
  std::optional<Description> description_;
  std::string fault_;
};

/// read_back returns the description in the edited file, with the right byte counts.
Description read_back(const EditedFile &file, const Options &options, const Console &console) {
  const Input input(file.path(), options, console);
  catalog::SoifStream stream = open_soif(input, console);
  tools::Progress progress(console.errors, false, "");
  Only only;
  read_soif(stream, only, progress, Mending::apply);
  const Description &description = only.description(file.path());
  if (const std::string fault = fault_of(description); !fault.empty()) throw Failure(file.path() + ": " + fault);
  if (is_header(description)) throw Failure(file.path() + ": the header of a message is no description");
  if (description.url != options.url) throw Failure(file.path() + ": the URL has changed to " + description.url);
  return description;
}

catalog::WriteSettings settings_of(const Console &console) {
  catalog::WriteSettings settings;
  const auto tell = [&console](const std::string &text) { console.errors << "soif: " << escaped(text) << std::endl; };
  settings.waiting = tell;
  settings.damage = tell;
  return settings;
}

/// store changes the description in the catalog, and its index if it has one. Returns false if it is unchanged.
bool store(const std::string &database, const Stored &shown, const Description &description, const Console &console) {
  catalog::WriteTransaction transaction(database, settings_of(console));
  if (find(transaction.catalog(), description.url) != shown)
    throw Failure("another program has changed the description meanwhile");
  catalog::Importer importer(transaction);
  catalog::SoifStream::Item item{1, 0, 0, catalog::ObjectView::read_owned(soif_of(description)), ""};
  if (const std::string reason = importer.take(item); !reason.empty()) throw Failure(reason);
  if (importer.summary().unchanged > 0) return false;
  transaction.date(importer.batch(), [] { return std::time(nullptr); });
  if (catalog::status_of(catalog::index_path(database)))
    transaction.publish(importer.batch(), importer.next_number());
  else
    transaction.commit(importer.batch(), importer.next_number());
  return true;
}

/// change has the description edited and stores it. Returns false if it is unchanged.
bool change(const std::string &database, const Options &options, const Console &console) {
  const Catalog catalog(database);
  const Stored stored = find(catalog, options.url);
  const std::string text = text_to_edit(catalog, stored);
  EditedFile file(text);
  try {
    file.edit();
    return file.text() != text && store(database, stored, read_back(file, options, console), console);
  } catch (const Failure &failure) {
    if (file.text() == text) throw;
    file.keep();
    throw Failure(std::string(failure.what()) + "; the text is kept in " + file.path());
  }
}

/// followed returns the path that symbolic links lead to: a commit replaces the file, not the link.
std::string followed(const std::string &path) {
  std::error_code error;
  const std::filesystem::path found = std::filesystem::canonical(path, error);
  return error ? path : found.string();
}

}  // namespace

int edit(const Options &options, const Console &console) {
  const bool is_changed = change(followed(options.database), options, console);
  if (options.json)
    console.out << R"({"verb":"edit","changed":)" << (is_changed ? 1 : 0) << "}\n";
  else if (!options.quiet)
    console.errors << "soif: " << escaped(options.url) << (is_changed ? " is changed\n" : " is unchanged\n");
  return tools::exit_done;
}

}  // namespace rdm::soif_tool
