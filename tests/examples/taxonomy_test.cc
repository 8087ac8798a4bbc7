// SPDX-License-Identifier: MIT
/// The classifications of the example catalogs are in their taxonomies.
#include <string>

#include <gtest/gtest.h>
#include <libcs/tax.h>

#include "examples/catalogs.h"
#include "support/diagnostics.h"

namespace rdm::examples {

class ExampleTaxonomies : public Examples {};

TEST_P(ExampleTaxonomies, ClassificationsAreKnownToTheTaxonomy) {
  const support::Diagnostics log;
  Taxonomy *taxonomy = taxonomy_load(example(name("taxonomy.rdm")).c_str());
  ASSERT_NE(taxonomy, nullptr);
  size_t unclassified = 0;
  for (const Object &object : descriptions()) {
    bool classified = false;
    for (const auto &[attribute, value] : object.attributes) {
      if (base_name(attribute) != "classification") continue;
      classified = true;
      EXPECT_NE(taxonomy_find(taxonomy, value.c_str()), nullptr) << object.url << ": " << value;
    }
    if (!classified) ++unclassified;
  }
  EXPECT_EQ(unclassified, GetParam().unclassified);
  taxonomy_destroy(taxonomy);
  host_free(taxonomy);
  EXPECT_EQ(log.text(), "");
}

TEST_P(ExampleTaxonomies, EveryClassOfTheTaxonomyIsInTheTree) {
  Taxonomy *taxonomy = taxonomy_load(example(name("taxonomy.rdm")).c_str());
  ASSERT_NE(taxonomy, nullptr);
  size_t classes = 0;
  for (const Object &object : parse_example(name("taxonomy.rdm"))) {
    if (object.template_name != "CLASSIFICATION") continue;
    ++classes;
    const Classification *node = taxonomy_find(taxonomy, object.attributes.at("id").c_str());
    ASSERT_NE(node, nullptr) << object.url;
    EXPECT_EQ(node->description, object.attributes.at("description"));
    EXPECT_EQ(node->parent == nullptr ? "ROOT" : node->parent->id, object.attributes.at("parent-id"));
  }
  EXPECT_GT(classes, 0U);
  taxonomy_destroy(taxonomy);
  host_free(taxonomy);
}

INSTANTIATE_TEST_SUITE_P(Catalogs, ExampleTaxonomies, ::testing::ValuesIn(catalogs()),
                         [](const auto &catalog) { return catalog.param.directory; });

}  // namespace rdm::examples
