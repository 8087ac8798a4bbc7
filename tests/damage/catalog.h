// SPDX-License-Identifier: MIT
/// A catalog that is damaged, served, verified and changed again and again.
#ifndef TESTS_DAMAGE_CATALOG_H
#define TESTS_DAMAGE_CATALOG_H

#include <sys/stat.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include "service/support/catalog.h"
#include "support/files.h"
#include "tools/minidba/verbs/verbs.h"

namespace rdm::damage {

/// The files of a catalog.
enum Part { database, index_file, url_map, parts };
using Files = std::array<std::string, parts>;  // their bytes; empty for one that is not there

/// Writer is the program that wrote the database: the hash library, without a URL map, or minidba.
enum class Writer { library, minidba };

/// Descriptions by number.
using Records = std::map<uint32_t, std::string>;

/// description returns the description of a number with a body of so many bytes, as it is printed.
std::string description(uint32_t number, size_t size);
/// url_of returns its URL.
std::string url_of(uint32_t number);

/// What a verb of minidba did.
struct Finished {
  int status;
  std::string out, errors;
};

/// What a client sees.
struct Answer {
  int started;  // responses begun
  int status;
  std::string announced;  // content-length
  std::string body;
};

/// Catalog has records on overflow pages, records longer than a page and an index. It is served as "catalog".
class Catalog {
 public:
  explicit Catalog(Writer writer);

  const Files &files() const { return files_; }
  const Records &records() const { return records_; }
  std::string path(Part part) const;

  /// write writes other bytes to the original files; their names, inodes and times stay. It undoes all earlier changes.
  void write(const Files &files);

  /// run runs a verb on the catalog, within this process.
  Finished run(const std::string &verb, const std::string &input = "",
               const std::vector<std::string> &arguments = {}) const;
  /// serve answers a request for descriptions; `attributes` empty for all.
  static Answer serve(const std::string &scope, const std::string &attributes = "");
  /// found returns the descriptions that the reader of the service finds by their keys.
  Records found() const;

 private:
  void make_with_library();
  void make_with_minidba();
  void keep();

  support::TemporaryDirectory directory_;
  support::Registry registry_;
  Records records_;
  Files files_;
  std::array<struct stat, parts> states_{};
};

}  // namespace rdm::damage

#endif
