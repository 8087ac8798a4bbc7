// SPDX-License-Identifier: MIT
/// A catalog in a temporary directory, written by minidba and read by the library.
#ifndef TESTS_CATALOG_CATALOG_FILES_H
#define TESTS_CATALOG_CATALOG_FILES_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"
#include "support/process.h"

namespace rdm {

/// Attributes of a description, in the order in which they are written.
using Attributes = std::vector<std::pair<std::string, std::string>>;

/// url returns the URL of a description by its number.
inline std::string url(int number) { return "http://localhost/" + std::to_string(number); }

/// rd returns a description as text.
std::string rd(const std::string &url, const Attributes &attributes);

/// export_header returns the header of an export: the next number of the catalog and the number of descriptions.
std::string export_header(const std::string &next_number, const std::string &descriptions);

class CatalogFiles {
 public:
  support::Finished update(const std::string &stream) const;
  support::Finished index() const;
  /// make_empty makes a catalog without descriptions.
  void make_empty() const;
  std::vector<std::string> command(const std::vector<std::string> &words) const;
  /// run runs a verb with its options, and with `-i`.
  support::Finished run(const std::vector<std::string> &words, const std::string &input = "") const;
  /// run_read_only does so as a user who may not write the directory.
  support::Finished run_read_only(const std::vector<std::string> &words) const;
  /// put stores a record under a key with the hash library, as another program does; remove removes one.
  void put(const std::string &key, const std::string &record) const;
  void remove(const std::string &key) const;
  /// shell_command returns the command line for a shell.
  std::string shell_command(const std::string &words) const;

  /// records returns every record by its key, with the reader of the service.
  std::map<std::string, std::string> records() const;
  /// value returns an attribute of a record; "(none)" if it has none.
  static std::string value(const std::string &record, const std::string &attribute);
  /// words returns the 32-bit numbers of the index.
  std::vector<uint32_t> words() const;
  /// files returns the names in the catalog's directory.
  std::vector<std::string> files() const;

  std::string path(const std::string &suffix = "") const { return directory_.path("catalog.db") + suffix; }
  std::string directory() const { return directory_.path(); }

 private:
  support::TemporaryDirectory directory_;
};

}  // namespace rdm

#endif
