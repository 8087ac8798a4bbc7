// SPDX-License-Identifier: MIT
/*
 * The taxonomy: a named tree of classifications under a root whose id is "ROOT".
 *
 * A taxonomy file is SOIF text: one TAXONOMY object, then one CLASSIFICATION object for each class, parents before
 * their children. A tree owns its nodes, a node its texts and its array of children. Siblings keep the order of
 * insertion, which has no meaning. Ids are compared exactly.
 *
 * Null pointers are accepted only if the comment of the procedure says so. Problems are reported to the diagnostic log.
 */
#ifndef LIBCS_TAX_H
#define LIBCS_TAX_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// Classification is one node of the tree.
typedef struct Classification {
  char *id;
  char *description;             /* or null */
  struct Classification *parent; /* null for the root and, by design, for its children */
  struct Classification **children;
  int32_t child_count;
} Classification;

/// Taxonomy is a tree with the attributes of its TAXONOMY object.
typedef struct Taxonomy {
  char *id;     /* or null, if the file has no TAXONOMY object with an id */
  pblock *info; /* "url" and, if given, "last-modified" and "maintainer" */
  Classification *root;
} Taxonomy;

/// classification_fn is called with a node of a walk and the walk's argument.
typedef void (*classification_fn)(Classification *node, void *argument);

/* ---- Taxonomies ---- */

/// taxonomy_load returns a new taxonomy from a file, or null if the file cannot be opened or allocation fails at the
/// start. The first TAXONOMY object with an id counts. A class is reported and omitted if it lacks an id, parent-id or
/// taxonomy-id, has the taxonomy-id of another taxonomy (compared in any letter case), or precedes the TAXONOMY object
/// or its parent. Damaged objects and other templates are skipped; after a read error, the classes read so far are
/// kept. Parents are found with an index, so loading takes time proportional to the file's size; taxonomy_insert and
/// taxonomy_find walk the tree. The caller releases the taxonomy with taxonomy_destroy, then its record with host_free.
Taxonomy *taxonomy_load(const char *path) QX_NOEXCEPT;

/// taxonomy_insert makes `node` the last child of the node `parent_id` (null or "ROOT": the root), which takes
/// ownership. If the parent does not exist or allocation fails, it logs an error and the node still belongs to the
/// caller, with a null `parent`. Returns 0 in every case. Inserting at the top level of a taxonomy without a root is
/// fatal.
int taxonomy_insert(Taxonomy *t, Classification *node, const char *parent_id) QX_NOEXCEPT;

/// taxonomy_find returns the first node with the id in pre-order, or null. "ROOT" is the root. Null for a null taxonomy
/// or id.
Classification *taxonomy_find(Taxonomy *t, const char *id) QX_NOEXCEPT;

/// taxonomy_walk is classification_walk from the root. A null taxonomy is ignored.
void taxonomy_walk(Taxonomy *t, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;

/// classification_walk calls `fn(node, argument)` for each node of a subtree: in pre-order if `mode` is 0 or 1, in
/// post-order if it is 2; then `fn` may release the node. It does nothing for another mode, a null node or a null
/// function. The tree may be of any depth. A tree not built by taxonomy_insert needs the parent pointers that
/// taxonomy_insert would set.
void classification_walk(Classification *node, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;

/// taxonomy_depth returns the number of steps from a node up to the root, 1 at the top level; 0 for the root, a null
/// node and a node without an id. The taxonomy is not used.
int taxonomy_depth(const Taxonomy *t, const Classification *node) QX_NOEXCEPT;

/// taxonomy_destroy releases the tree, the info and the id, and clears the record, which the caller releases. Null is
/// ignored.
void taxonomy_destroy(Taxonomy *t) QX_NOEXCEPT;

/* ---- Nodes ---- */

/// classification_create returns a new node with every field 0, or null if allocation fails.
Classification *classification_create(void) QX_NOEXCEPT;

/// classification_destroy releases a node with its texts and its array of children, but not the children. Null is
/// ignored.
void classification_destroy(Classification *node) QX_NOEXCEPT;

QX_END

#endif
