/*
 * The registry of catalog services.
 */
#ifndef SERVICE_CSID_H
#define SERVICE_CSID_H

#include <qxapi/qxapi.h>

QX_BEGIN

int csid_init(const char *file, const char *default_csid) QX_NOEXCEPT;
void csid_terminate(void) QX_NOEXCEPT;
pblock *csid_find(const char *csid) QX_NOEXCEPT;
char *csid_findval(const char *name, const char *csid) QX_NOEXCEPT;
pblock *csid_finda2p(const char *csid) QX_NOEXCEPT;
pblock *csid_findp2a(const char *csid) QX_NOEXCEPT;
char *csid_default(const char *csid) QX_NOEXCEPT;

QX_END

#endif
