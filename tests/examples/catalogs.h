// SPDX-License-Identifier: MIT
/// Descriptions of the example catalogs for their tests.
#ifndef TESTS_EXAMPLES_CATALOGS_H
#define TESTS_EXAMPLES_CATALOGS_H

#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "libcs/guard.h"
#include "support/directories.h"
#include "support/files.h"

namespace rdm::examples {

using Attributes = std::map<std::string, std::string>;

struct Object {
  std::string template_name;
  std::string url;
  Attributes attributes;
  std::string printed;
};

struct Catalog {
  std::string directory;
  std::string csid;
  size_t descriptions;
  size_t unclassified;
  size_t dated;
  std::set<std::string> required;
};

inline void PrintTo(const Catalog &catalog, std::ostream *out) { *out << catalog.directory; }

inline std::string example(const std::string &name) { return support::in_source("examples/" + name); }

inline int append_to_string(void *text, const void *bytes, int32_t length) {
  static_cast<std::string *>(text)->append(static_cast<const char *>(bytes), static_cast<size_t>(length));
  return 0;
}

inline std::string print(const SOIF *object) {
  std::string text;
  SoifWriter(append_to_string, &text).print(object);
  return text;
}

inline Object copy_of(const SOIF *soif) {
  Object object{soif->template_name, soif->url, {}, print(soif)};
  for (int32_t i = 0; i < soif->attrs->nbuckets; ++i) {
    const cslist *bucket = soif->attrs->buckets[i];
    for (const cslist_node *node = bucket == nullptr ? nullptr : bucket->head; node != nullptr; node = node->next) {
      const auto *pair = static_cast<const AVPair *>(node->data);
      object.attributes.emplace(pair->attribute, std::string(pair->value, static_cast<size_t>(pair->vsize)));
    }
  }
  return object;
}

inline std::vector<Object> parse(const std::string &text) {
  std::vector<Object> objects;
  SoifReader reader(text);
  while (SoifPtr soif = reader.next()) objects.push_back(copy_of(soif.get()));
  return objects;
}

inline std::vector<Object> parse_example(const std::string &name) { return parse(support::read_file(example(name))); }

/// base_name removes the number of a multi-valued attribute's name.
inline std::string base_name(const std::string &attribute) {
  const size_t end = attribute.find_last_not_of("0123456789");
  return end + 1 < attribute.size() && attribute[end] == '-' ? attribute.substr(0, end) : attribute;
}

/// catalogs returns the documented contents of each.
inline std::vector<Catalog> catalogs() {
  return {Catalog{"rfc",
                  "x-catalog://localhost:8380/rfc",
                  88,
                  3,
                  88,
                  {"title", "author-1", "series", "number", "last-modified", "content-type", "language", "keywords",
                   "description"}},
          Catalog{"classics",
                  "x-catalog://localhost:8380/classics",
                  24,
                  1,
                  0,
                  {"title", "author-1", "original-language", "content-type", "language", "keywords", "description"}}};
}

/// Examples runs a test on each catalog.
class Examples : public ::testing::TestWithParam<Catalog> {
 protected:
  std::string name(const std::string &file) const { return GetParam().directory + "/" + file; }
  std::vector<Object> descriptions() const { return parse_example(name("rds.soif")); }
};

}  // namespace rdm::examples

#endif
