// SPDX-License-Identifier: MIT
/// Catalogs and registries of catalog services for a single test.
#ifndef TESTS_SERVICE_SUPPORT_CATALOG_H
#define TESTS_SERVICE_SUPPORT_CATALOG_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "support/files.h"

namespace rdm::support {

/// soif returns the text of an object; the attributes keep their order.
std::string soif(const std::string &template_name, const std::string &url,
                 const std::vector<std::pair<std::string, std::string>> &attributes);

/// Catalog is a database with its index.
class Catalog {
 public:
  explicit Catalog(const TemporaryDirectory &directory, const std::string &name = "catalog.db");

  const std::string &path() const { return path_; }
  /// put stores a record under a number.
  void put(uint32_t number, const std::string &record);
  /// index writes the index file: (time, number) pairs in the order given.
  void index(const std::vector<std::pair<uint32_t, uint32_t>> &entries);

 private:
  std::string path_;
};

/// index_bytes returns an index file with any magic number and count.
std::string index_bytes(uint32_t magic, uint32_t count, const std::vector<std::pair<uint32_t, uint32_t>> &entries);

/// Registry configures catalog services from the text of a CSID configuration file, for its lifetime.
class Registry {
 public:
  Registry(const TemporaryDirectory &directory, const std::string &text, const char *default_csid = nullptr);
  Registry(const Registry &) = delete;
  Registry &operator=(const Registry &) = delete;
  ~Registry();
};

}  // namespace rdm::support

#endif
