// SPDX-License-Identifier: MIT
#include "tools/rdmctl/deletion.h"

#include <fcntl.h>
#include <unistd.h>

#include <ctime>
#include <fstream>
#include <ostream>

#include "catalog/maintenance.h"
#include "catalog/os/error.h"
#include "catalog/stream/dump_format.h"
#include "catalog/stream/soif_stream.h"
#include "catalog/transaction.h"
#include "qxapi/escaped.h"
#include "qxapi/words.h"

namespace rdm::rdmctl {
namespace {

using catalog::SoifStream;

/// lines_from returns the lines of a file from an offset on, without white space at both ends and without empty lines.
std::vector<std::string> lines_from(const std::string &path, int64_t offset) {
  std::ifstream file(path);
  file.seekg(offset);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    if (const std::string_view text = trim(line, " \t\r"); !text.empty()) lines.emplace_back(text);
  }
  return lines;
}

/// erase_named deletes the descriptions with these URLs, and reports those that do not exist. Returns how many it
/// deleted.
int64_t erase_named(const std::string &database, const std::vector<std::string> &urls, std::ostream &errors) {
  const catalog::WriteTransaction transaction(database);
  catalog::WriteBatch batch(transaction.catalog());
  for (const std::string &url : urls) {
    if (const std::optional<uint32_t> number = batch.number_of(url))
      batch.erase(*number, url);
    else
      errors << "rdmctl: no description " << escaped(url) << '\n';
  }
  transaction.commit(batch, transaction.catalog().next_number());
  return batch.count();
}

void drop_expired(const std::string &database) {
  const catalog::WriteTransaction transaction(database);
  catalog::WriteBatch batch(transaction.catalog());
  erase_expired(transaction.catalog(), std::time(nullptr), batch);
  transaction.commit(batch, transaction.catalog().next_number());
}

/// renew_index writes the index. It throws a Failure if a record contradicts the present index.
void renew_index(const std::string &database) {
  const catalog::Lock lock(database);
  const catalog::Catalog current(database);
  const catalog::KnownRecords known = known_records(current);
  const auto check = [&](const catalog::IndexEntry &entry, std::string_view record) {
    const std::string fault = known.fault_of(entry, record);
    if (!fault.empty())
      throw catalog::Failure(current.damaged(entry.number, record, fault) + ": the index is not written");
  };
  catalog::write_index(catalog::index_path(database), database, catalog::index_entries(current, check));
}

void list_unclassified(const std::string &database) {
  const size_t slash = database.rfind('/');
  if (slash == std::string::npos) return;
  const std::string path = database.substr(0, slash) + "/unclassified";
  ::unlink(path.c_str());
  std::ofstream file(path);
  each_unclassified(catalog::Catalog(database), catalog::read_index(catalog::index_path(database)),
                    [&](const std::string &url) { file << url << '\n'; });
  if (!file.flush()) throw catalog::system_failure("cannot write " + path);
}

}  // namespace

Named named_in(const std::string &path, const std::string &name, std::ostream &errors) {
  const HostFileGuard file = catalog::open_file(path, O_RDONLY);
  if (!file) throw catalog::system_failure("cannot read " + name);
  SoifStream stream(
      file.get(), path, [](int64_t) {}, name);
  Named named;
  int64_t header_end = 0;
  while (const auto item = stream.next()) {
    const std::string reason = catalog::refusal(*item);
    if (catalog::is_header(*item)) {
      header_end = item->end;
    } else if (reason.empty()) {
      named.urls.emplace_back(item->object->url());
    } else {
      ++named.rejected;
      errors << "rdmctl: " << escaped(name) << ": line " << stream.line_of(item->offset) << ": object " << item->number
             << " rejected: " << escaped(reason) << '\n';
    }
  }
  if (named.urls.empty() && named.rejected == 0) named.urls = lines_from(path, header_end);
  return named;
}

int64_t delete_from(const std::string &database, const std::vector<std::string> &urls, std::ostream &errors) {
  const int64_t erased = erase_named(database, urls, errors);
  drop_expired(database);
  renew_index(database);
  list_unclassified(database);
  return erased;
}

}  // namespace rdm::rdmctl
