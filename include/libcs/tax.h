/*
 * The taxonomy tree.
 */
#ifndef LIBCS_TAX_H
#define LIBCS_TAX_H

#include <qxapi/qxapi.h>

QX_BEGIN

typedef struct Classification {
  char *id;
  char *description;
  struct Classification *parent;
  struct Classification **children;
  int32_t child_count;
} Classification;
typedef struct Taxonomy {
  char *id;
  pblock *info;
  Classification *root;
} Taxonomy;
typedef void (*classification_fn)(Classification *node, void *argument);
Taxonomy *taxonomy_load(const char *path) QX_NOEXCEPT;
int taxonomy_insert(Taxonomy *t, Classification *node, const char *parent_id) QX_NOEXCEPT;
Classification *taxonomy_find(Taxonomy *t, const char *id) QX_NOEXCEPT;
void taxonomy_walk(Taxonomy *t, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;
void classification_walk(Classification *node, int mode, classification_fn fn, void *argument) QX_NOEXCEPT;
int taxonomy_depth(const Taxonomy *t, const Classification *node) QX_NOEXCEPT;
void taxonomy_destroy(Taxonomy *t) QX_NOEXCEPT;
Classification *classification_create(void) QX_NOEXCEPT;
void classification_destroy(Classification *node) QX_NOEXCEPT;

QX_END

#endif
