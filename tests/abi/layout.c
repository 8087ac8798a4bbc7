// SPDX-License-Identifier: MIT
/* The layout of the public records on 64-bit machines. Programs that were compiled against the headers read and write
   these fields directly, so that a line may be added here but none changed. */
#include <stddef.h>

#include <libcs/adt.h>
#include <libcs/log.h>
#include <libcs/soif.h>
#include <libcs/tax.h>
#include <qxapi/qxapi.h>

#include "service/rdm.h"
#include "service/schema.h"

#define FIELD(record, field, offset) \
  _Static_assert(offsetof(record, field) == (offset), #record "." #field " is not where it was")
#define SIZE(record, size) _Static_assert(sizeof(record) == (size), #record " is not as large as it was")

#ifdef __LP64__
FIELD(host_param, name, 0);
FIELD(host_param, value, 8);
FIELD(host_param, next, 16);
SIZE(host_param, 24);

FIELD(host_input, data, 0);
FIELD(host_input, position, 8);
FIELD(host_input, size, 12);
FIELD(host_input, source, 16);
SIZE(host_input, 24);

FIELD(Session, client, 0);
FIELD(Session, socket, 8);
FIELD(Session, input, 16);
FIELD(Session, host, 24);
SIZE(Session, 32);

FIELD(Request, line, 0);
FIELD(Request, headers, 8);
FIELD(Request, response, 16);
FIELD(Request, vars, 24);
FIELD(Request, status, 32);
FIELD(Request, host, 40);
SIZE(Request, 48);

FIELD(cslist_node, data, 0);
FIELD(cslist_node, next, 8);
SIZE(cslist_node, 16);

FIELD(cslist, head, 0);
FIELD(cslist, tail, 8);
FIELD(cslist, count, 16);
FIELD(cslist, free, 24);
FIELD(cslist, compare, 32);
FIELD(cslist, copy, 40);
SIZE(cslist, 48);

FIELD(cshashtable, buckets, 0);
FIELD(cshashtable, nbuckets, 8);
FIELD(cshashtable, count, 12);
FIELD(cshashtable, hash, 16);
FIELD(cshashtable, copy, 24);
FIELD(cshashtable, compare, 32);
FIELD(cshashtable, free, 40);
SIZE(cshashtable, 48);

FIELD(cshashtable_statistics, items, 0);
FIELD(cshashtable_statistics, buckets, 4);
FIELD(cshashtable_statistics, longest, 8);
FIELD(cshashtable_statistics, chained, 12);
FIELD(cshashtable_statistics, mean, 16);
FIELD(cshashtable_statistics, spread, 24);
SIZE(cshashtable_statistics, 32);

FIELD(cspriq_level, queue, 0);
FIELD(cspriq_level, priority, 8);
SIZE(cspriq_level, 16);

FIELD(csio, flags, 0);
FIELD(csio, data, 8);
FIELD(csio, length, 16);
FIELD(csio, position, 20);
FIELD(csio, capacity, 24);
FIELD(csio, max_memory, 28);
FIELD(csio, increment, 32);
FIELD(csio, filename, 40);
FIELD(csio, fd, 48);
FIELD(csio, remove_file, 52);
FIELD(csio, wbuf, 56);
FIELD(csio, wbuf_len, 64);
FIELD(csio, finished, 68);
SIZE(csio, 72);

FIELD(AVPair, attribute, 0);
FIELD(AVPair, value, 8);
FIELD(AVPair, vsize, 16);
SIZE(AVPair, 24);

FIELD(SOIF, template_name, 0);
FIELD(SOIF, url, 8);
FIELD(SOIF, attrs, 16);
FIELD(SOIF, attr_count, 24);
FIELD(SOIF, value_bytes, 28);
SIZE(SOIF, 32);

FIELD(SOIFBuffer, data, 0);
FIELD(SOIFBuffer, length, 8);
FIELD(SOIFBuffer, reserved, 12);
FIELD(SOIFBuffer, size, 16);
FIELD(SOIFBuffer, initial_size, 20);
SIZE(SOIFBuffer, 24);

FIELD(soif_stream, in_use, 0);
FIELD(soif_stream, output, 8);
FIELD(soif_stream, output_argument, 16);
FIELD(soif_stream, input_file, 24);
FIELD(soif_stream, input_string, 32);
FIELD(soif_stream, input_length, 40);
FIELD(soif_stream, input_position, 44);
FIELD(soif_stream, accept, 48);
SIZE(soif_stream, 56);

FIELD(Classification, id, 0);
FIELD(Classification, description, 8);
FIELD(Classification, parent, 16);
FIELD(Classification, children, 24);
FIELD(Classification, child_count, 32);
SIZE(Classification, 40);

FIELD(Taxonomy, id, 0);
FIELD(Taxonomy, info, 8);
FIELD(Taxonomy, root, 16);
SIZE(Taxonomy, 24);

FIELD(rdmhdr, version, 0);
FIELD(rdmhdr, type, 8);
FIELD(rdmhdr, query_language, 16);
FIELD(rdmhdr, response_interpret, 24);
FIELD(rdmhdr, csid, 32);
FIELD(rdmhdr, error_message, 40);
FIELD(rdmhdr, error_code, 48);
SIZE(rdmhdr, 56);

FIELD(cs_dbentry, time, 0);
FIELD(cs_dbentry, reserved1, 4);
FIELD(cs_dbentry, key, 8);
FIELD(cs_dbentry, reserved2, 12);
FIELD(cs_dbentry, reserved3, 16);
SIZE(cs_dbentry, 20);

FIELD(cs_dbindex, entries, 0);
FIELD(cs_dbindex, count, 8);
SIZE(cs_dbindex, 16);

/* Entries are only ever added to the end of the table, with a new version. */
FIELD(qxapi_host, version, 0);
FIELD(qxapi_host, alloc, 8);
FIELD(qxapi_host, thread_id, 8 + 42 * 8);
SIZE(qxapi_host, 8 + 43 * 8);
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
