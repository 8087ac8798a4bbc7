/*
 * Alias files.
 */
#ifndef SERVICE_ALIAS_H
#define SERVICE_ALIAS_H

#include <qxapi/qxapi.h>

QX_BEGIN

int alias_init(pblock **a2p, pblock **p2a, const char *path) QX_NOEXCEPT;
int alias_parse(pblock *a2p, pblock *p2a, char *line) QX_NOEXCEPT;
int alias_copy(pblock *map, const char *name, const char *value, int unique) QX_NOEXCEPT;
char *alias_to_parent(pblock *a2p, const char *alias) QX_NOEXCEPT;
char *parent_to_aliases(pblock *p2a, const char *name) QX_NOEXCEPT;
char *alias_iterate(pblock *p2a, const char *parent) QX_NOEXCEPT;
void alias_destroy(pblock *a2p, pblock *p2a) QX_NOEXCEPT;

QX_END

#endif
