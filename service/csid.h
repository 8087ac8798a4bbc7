// SPDX-License-Identifier: MIT
/*
 * The registry of catalog services by CSID (catalog service identifier).
 *
 * csid_init fills it from the CSID configuration file before requests are served, csid_terminate empties it; any thread
 * may look services up in between. CSIDs are compared exactly; if a CSID is configured twice, lookups find the first.
 * They return pointers borrowed from the registry, or null for an unknown or null CSID. Problems are reported to the
 * diagnostic log.
 */
#ifndef SERVICE_CSID_H
#define SERVICE_CSID_H

#include <qxapi/qxapi.h>

QX_BEGIN

/// csid_init replaces the registry by the configuration `file` and reads the alias file of each service that names one.
/// A line with a "csid" pair starts a service; lines of pairs after it add to its parameters. Lines that are empty or
/// begin with "#", and pairs before the first service, are ignored. The registry holds 63 services; more are reported
/// and ignored. `default_csid` becomes the default, even if it is not configured; null keeps the current one. Returns
/// 0; or -1, with an empty registry, if `file` is null or cannot be read.
int csid_init(const char *file, const char *default_csid) QX_NOEXCEPT;

/// csid_terminate releases the services and the default. Both close the catalogs that are open for requests.
void csid_terminate(void) QX_NOEXCEPT;

/// csid_find returns the parameters of a service: all pairs of its lines, "csid" included.
pblock *csid_find(const char *csid) QX_NOEXCEPT;

/// csid_findval returns the value of the parameter `name` of a service, or null.
char *csid_findval(const char *name, const char *csid) QX_NOEXCEPT;

/// csid_finda2p returns the map from aliases to parents of a service (see alias.h), or null if it has no aliases.
pblock *csid_finda2p(const char *csid) QX_NOEXCEPT;

/// csid_findp2a returns the map from parents to aliases of a service, or null if it has no aliases.
pblock *csid_findp2a(const char *csid) QX_NOEXCEPT;

/// csid_default makes a copy of `csid` the default, unless it is null. Returns the default, or null if there is none.
char *csid_default(const char *csid) QX_NOEXCEPT;

QX_END

#endif
