// SPDX-License-Identifier: MIT
/*
 * Alias files: several names for one thing.
 *
 * A line of an alias file holds a parent name and its aliases, separated by blanks or tabs. Two parameter blocks hold
 * what was read: `a2p` maps each alias, and each parent, to its parent; `p2a` is a chain that leads from a parent to
 * its first alias and from each alias to the next. An alias occurs once in a file. Of equal names the first added is
 * found. Lookups take a null block, which a catalog service without aliases has, for one without names; the names that
 * they return are borrowed from their block. Problems go to the diagnostic log.
 */
#ifndef SERVICE_ALIAS_H
#define SERVICE_ALIAS_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// alias_init reads the alias file `path` into two new blocks, which alias_destroy releases. Lines that are empty or
/// begin with "#" are comments; of a line with a name that cannot be added the rest is lost. Returns 0, or -1 with both
/// blocks null when the file cannot be read or memory fails.
int alias_init(pblock **a2p, pblock **p2a, const char *path) QX_NOEXCEPT;

/// alias_parse adds the names of a line, which it splits in place. Returns 0, or -1 when a name could not be added:
/// those before it stay, the rest of the line is dropped.
int alias_parse(pblock *a2p, pblock *p2a, char *line) QX_NOEXCEPT;

/// alias_copy adds copies of `name` and `value` to `map`. Returns 0, or -1 when memory fails or `unique` is not 0 and
/// the map has the name already.
int alias_copy(pblock *map, const char *name, const char *value, int unique) QX_NOEXCEPT;

/// alias_to_parent returns the parent of an alias, a parent itself for a parent, or null.
char *alias_to_parent(pblock *a2p, const char *alias) QX_NOEXCEPT;

/// parent_to_aliases returns the name that follows `name` in its chain: the first alias of a parent, the next alias of
/// an alias, null after the last.
char *parent_to_aliases(pblock *p2a, const char *name) QX_NOEXCEPT;

/// alias_iterate visits the chain of `parent` to its end and returns null.
char *alias_iterate(pblock *p2a, const char *parent) QX_NOEXCEPT;

/// alias_destroy releases both blocks; null ones are ignored.
void alias_destroy(pblock *a2p, pblock *p2a) QX_NOEXCEPT;

QX_END

#endif
