// SPDX-License-Identifier: MIT
/*
 * The registry of catalog services, by the CSID (catalog service identifier) that names each.
 *
 * csid_init fills it from the CSID configuration file before requests are served, csid_terminate empties it; between
 * the two any thread may ask. A CSID is compared exactly; one configured twice is found at its first place. What the
 * lookups return is borrowed from the registry, null for an unknown or a null CSID. Problems go to the diagnostic log.
 */
#ifndef SERVICE_CSID_H
#define SERVICE_CSID_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// csid_init reads the configuration `file` into the registry, instead of what it held, and the alias file of each
/// service that names one. A line with a "csid" pair starts a service; lines of pairs after it add to its parameters.
/// Lines that are empty or begin with "#", and pairs before the first service, are ignored. The registry holds 63
/// services; more are reported and ignored. `default_csid` becomes the default, whether configured or not; null keeps
/// the one there is. Returns 0, or -1 when there is no file (null included), or it cannot be read, and the registry is
/// left empty.
int csid_init(const char *file, const char *default_csid) QX_NOEXCEPT;

/// csid_terminate releases the services and the default.
void csid_terminate(void) QX_NOEXCEPT;

/// csid_find returns the parameters of a service: all pairs of its lines, "csid" included.
pblock *csid_find(const char *csid) QX_NOEXCEPT;

/// csid_findval returns the value of the parameter `name` of a service; null too where it has none.
char *csid_findval(const char *name, const char *csid) QX_NOEXCEPT;

/// csid_finda2p returns the map from aliases to parents of a service (see alias.h); null too where it has no aliases.
pblock *csid_finda2p(const char *csid) QX_NOEXCEPT;

/// csid_findp2a returns the map from parents to aliases of a service; null too where it has no aliases.
pblock *csid_findp2a(const char *csid) QX_NOEXCEPT;

/// csid_default makes a copy of `csid` the default, unless it is null, and returns the default, null when there is
/// none.
char *csid_default(const char *csid) QX_NOEXCEPT;

QX_END

#endif
