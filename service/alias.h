// SPDX-License-Identifier: MIT
/*
 * Alias files: alternative names.
 *
 * A line of an alias file holds a parent name and its aliases, separated by blanks or tabs. It is read into two
 * parameter blocks: `a2p` maps each alias, and each parent, to its parent; `p2a` is a chain that maps a parent to its
 * first alias and each alias to the next. An alias may occur only once in a file. Lookups find the first added of equal
 * names. They treat a null block, which a catalog service without aliases has, as empty; the names that they return are
 * borrowed from the block. Problems are reported to the diagnostic log.
 */
#ifndef SERVICE_ALIAS_H
#define SERVICE_ALIAS_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// alias_init reads the alias file `path` into two new blocks, which alias_destroy releases. Lines that are empty or
/// begin with "#" are comments. If a name cannot be added, the rest of its line is ignored. Returns 0, or -1, with both
/// blocks null, if the file cannot be read or allocation fails.
int alias_init(pblock **a2p, pblock **p2a, const char *path) QX_NOEXCEPT;

/// alias_parse adds the names of a line, which it splits in place. Returns 0, or -1 if a name could not be added: the
/// names before it are kept, the rest of the line is ignored.
int alias_parse(pblock *a2p, pblock *p2a, char *line) QX_NOEXCEPT;

/// alias_copy adds copies of `name` and `value` to `map`. Returns 0, or -1 if allocation fails, or if `unique` is not 0
/// and the map has the name already.
int alias_copy(pblock *map, const char *name, const char *value, int unique) QX_NOEXCEPT;

/// alias_to_parent returns the parent of an alias (a parent is its own), or null.
char *alias_to_parent(pblock *a2p, const char *alias) QX_NOEXCEPT;

/// parent_to_aliases returns the name that follows `name` in its chain: the first alias of a parent, the next alias of
/// an alias, null after the last.
char *parent_to_aliases(pblock *p2a, const char *name) QX_NOEXCEPT;

/// alias_iterate follows the chain of `parent` to its end. Always returns null.
char *alias_iterate(pblock *p2a, const char *parent) QX_NOEXCEPT;

/// alias_destroy releases both blocks; null ones are ignored.
void alias_destroy(pblock *a2p, pblock *p2a) QX_NOEXCEPT;

QX_END

#endif
