// SPDX-License-Identifier: MIT
/*
 * The taxonomy: a named tree of classifications under a root whose id is "ROOT".
 *
 * A taxonomy file is SOIF text: one TAXONOMY object, then one CLASSIFICATION object for each class, parents before
 * their children. A tree owns its nodes, a node its texts and its array of children. Siblings stay in the order of
 * insertion, which nobody should read a meaning into. Ids are compared exactly.
 *
 * Null pointers are accepted where a procedure says so. Problems go to the diagnostic log.
 */
#ifndef LIBCS_TAX_H
#define LIBCS_TAX_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// Classification is one node of the tree.
typedef struct Classification {
  char *id;
  char *description;             /* or null */
  struct Classification *parent; /* null for the root and also, on purpose, for the nodes directly under it */
  struct Classification **children;
  int32_t child_count;
} Classification;

/// Taxonomy is the tree with what its file says of it.
typedef struct Taxonomy {
  char *id;     /* or null, when the file has no TAXONOMY object with an id */
  pblock *info; /* "url" and, where given, "last-modified" and "maintainer" */
  Classification *root;
} Taxonomy;

/// classification_fn is called with a node of a walk and the walk's argument.
typedef void (*classification_fn)(Classification *node, void *argument);

/* ---- Taxonomies ---- */

/// taxonomy_load returns a new taxonomy from a file, or null when the file cannot be opened or memory fails at the
/// start. Of several TAXONOMY objects the first with an id counts. A class without id, parent-id or taxonomy-id, of
/// another taxonomy (ids compared in any letter case), ahead of the TAXONOMY object or ahead of its parent is left out
/// with a message. Damaged objects and other templates are skipped; what can be read of a file with a read error is
/// kept. Parents are found by an index, so that loading takes the time of the file's size; taxonomy_insert and
/// taxonomy_find walk the tree. The caller releases the taxonomy with taxonomy_destroy, then its record with host_free.
Taxonomy *taxonomy_load(const char *path) QX_NOEXCEPT;

/// taxonomy_insert makes `node` the last child of the node `parent_id`, null or "ROOT" meaning the root, and hands it
/// to the tree. Without such a parent, or memory, it logs an error and the node stays the caller's; below the top level
/// its `parent` then is null. Always 0. A tree without a root is fatal for a node of the top level.
int taxonomy_insert(Taxonomy *t, Classification *node, const char *parent_id) QX_NOEXCEPT;

/// taxonomy_find returns the first node with the id, in the order of a walk that puts parents first, or null. "ROOT" is
/// the root. Null for a null taxonomy or id.
Classification *taxonomy_find(Taxonomy *t, const char *id) QX_NOEXCEPT;

/// taxonomy_walk is classification_walk from the root; nothing for a null taxonomy.
void taxonomy_walk(Taxonomy *t, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;

/// classification_walk calls `fn(node, argument)` for each node of a subtree: parents first in mode 0 and 1, children
/// first in mode 2, where `fn` may release the node. Nothing for another mode, a null node or a null function. The tree
/// may be of any depth; one that was not put together by taxonomy_insert needs the parent pointers that it would set.
void classification_walk(Classification *node, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;

/// taxonomy_depth returns the number of steps from a node up to the root: 1 at the top level. 0 for the root, a null
/// node and one without an id. The taxonomy is not used.
int taxonomy_depth(const Taxonomy *t, const Classification *node) QX_NOEXCEPT;

/// taxonomy_destroy releases the tree, the info and the id, but not the record, which may be anybody's and is left
/// empty. Null is ignored.
void taxonomy_destroy(Taxonomy *t) QX_NOEXCEPT;

/* ---- Nodes ---- */

/// classification_create returns a new node with every field 0, or null when memory fails.
Classification *classification_create(void) QX_NOEXCEPT;

/// classification_destroy releases a node with its texts and its array, but not its children. Null is ignored.
void classification_destroy(Classification *node) QX_NOEXCEPT;

QX_END

#endif
