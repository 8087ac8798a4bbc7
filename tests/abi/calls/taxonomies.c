// SPDX-License-Identifier: MIT
/* Taxonomies: read from a file, changed, walked. */
#include <libcs/tax.h>

#include "files.h"

static const char text[] =
    "@TAXONOMY { http://example.org/\nid{3}:\tall\n}\n"
    "@CLASSIFICATION { -\nid{4}:\tArts\ntaxonomy-id{3}:\tall\nparent-id{4}:\tROOT\n}\n"
    "@CLASSIFICATION { -\nid{5}:\tMusic\ntaxonomy-id{3}:\tall\nparent-id{4}:\tArts\n}\n";

static void append_id(Classification *node, void *ids) {
  strcat(ids, node->id);
  strcat(ids, " ");
}

static void insert_a_node(Taxonomy *taxonomy) {
  Classification *node = classification_create();
  CHECK(node != NULL && node->id == NULL && node->child_count == 0);
  node->id = host_strdup("Jazz");
  CHECK(taxonomy_insert(taxonomy, node, "Music") == 0);
  CHECK(node->parent == taxonomy_find(taxonomy, "Music"));
  CHECK(taxonomy_depth(taxonomy, node) == 3);
}

static void walk(Taxonomy *taxonomy) {
  char ids[64] = "";
  taxonomy_walk(taxonomy, 0, append_id, ids);
  CHECK_TEXT(ids, "ROOT Arts Music Jazz ");
  ids[0] = '\0';
  classification_walk(taxonomy_find(taxonomy, "Music"), 2, append_id, ids);
  CHECK_TEXT(ids, "Jazz Music ");
}

int main(void) {
  Taxonomy *taxonomy;
  write_file("taxonomy.rdm", text);
  taxonomy = taxonomy_load("taxonomy.rdm");
  CHECK(taxonomy != NULL);
  CHECK_TEXT(taxonomy->id, "all");
  CHECK_TEXT(host_param_find("url", taxonomy->info), "http://example.org/");
  CHECK(taxonomy_find(taxonomy, "Sports") == NULL);
  insert_a_node(taxonomy);
  walk(taxonomy);
  taxonomy_destroy(taxonomy);
  CHECK(taxonomy->root == NULL);
  host_free(taxonomy);
  CHECK(taxonomy_load("missing.rdm") == NULL);
  classification_destroy(classification_create());
  return 0;
}
