// SPDX-License-Identifier: MIT
/* A record and constants that the snapshots of the libraries omit, because no exported procedure names them. Programs
   were compiled with them, so they must not change. */
#include <stddef.h>

#include <libcs/adt.h>
#include <libcs/log.h>
#include <qxapi/qxapi.h>

#include "service/rdm.h"
#include "service/schema.h"

#ifdef __LP64__
_Static_assert(offsetof(cspriq_level, queue) == 0 && offsetof(cspriq_level, priority) == 8 &&
                   sizeof(cspriq_level) == 16,
               "the level of a priority queue");
#endif

_Static_assert(QXAPI_VERSION == 0x0300, "the version of the plug-in API");
_Static_assert(HOST_DONE == 0 && HOST_ABORT == -1 && HOST_NOT_HANDLED == -2, "the request statuses");
_Static_assert(CSIO_MEMORY == 0x01 && CSIO_FILE == 0x10, "the backings of a buffer");
_Static_assert(CSLOG_NOTE == 0 && CSLOG_SOURCE == 1 && CSLOG_WARNING == 2 && CSLOG_ERROR == 3, "the kinds of line");
_Static_assert(RDM_UNKNOWN == 0 && RDM_RD_REQUEST == 1 && RDM_RD_DELETE_REQUEST == 2 && RDM_RD_RESPONSE == 3 &&
                   RDM_RD_DELETE_RESPONSE == 4 && RDM_SERVER_REQUEST == 5 && RDM_SERVER_RESPONSE == 6 &&
                   RDM_SCHEMA_REQUEST == 7 && RDM_SCHEMA_RESPONSE == 8 && RDM_TAXONOMY_REQUEST == 9 &&
                   RDM_TAXONOMY_RESPONSE == 10 && RDM_STATUS_REQUEST == 11 && RDM_STATUS_RESPONSE == 12,
               "the types of message");
_Static_assert(SCHEMA_UNKNOWN == 0 && SCHEMA_INT == 1 && SCHEMA_SERIAL == 2 && SCHEMA_DATE == 3 && SCHEMA_STRING == 4 &&
                   SCHEMA_FLOAT == 5 && SCHEMA_BLOB == 6 && SCHEMA_TEXT_SIZE == 1024,
               "the data types of a schema");
