/*
 * Time, parameter blocks, commands, digests and CSID URLs.
 */
#ifndef LIBCS_CS_H
#define LIBCS_CS_H

#include <libcs/adt.h>
#include <qxapi/qxapi.h>

QX_BEGIN

int cs_time2str(time_t t, char *buffer, int size) QX_NOEXCEPT;
int cs_time2str_simple_dateonly(time_t t, char *buffer, int size) QX_NOEXCEPT;
int cs_time2str_simple_datetimeonly(time_t t, char *buffer, int size) QX_NOEXCEPT;
int cs_time2informix(time_t t, char *buffer, int size) QX_NOEXCEPT;
time_t cs_str2time(const char *text, time_t *out) QX_NOEXCEPT;
time_t ZAN_ParseTimeString(const char *text, int flag) QX_NOEXCEPT;
int ZAN_LocalZoneOffset(void) QX_NOEXCEPT;
char *plus2space(char *text) QX_NOEXCEPT;
/* the terminating NUL */
int pblock_form2pblock(char *text, int32_t length, pblock *block) QX_NOEXCEPT;
/* text has length + 1 writable bytes */
char *pblock_pblock2str_add_nl(char *text) QX_NOEXCEPT;
const char *pblock_pblock2rdm(pblock *block, csio *header, csio *query) QX_NOEXCEPT;
void pblock_remove_n_free(const char *name, pblock *block) QX_NOEXCEPT;
int cs_limited_cli_run(const char *command, const char *directory, long reserved1, long reserved2, int ignore_signals,
                       int pipe_flag) QX_NOEXCEPT;
int cs_cli_run(const char *command, const char *directory) QX_NOEXCEPT;
int cs_cli_run_no_pipe(const char *command, const char *directory) QX_NOEXCEPT;
char *cs_search_path(const char *name, const char *variable) QX_NOEXCEPT;
unsigned char *cs_mem2md5(const void *data, int32_t length, unsigned char *out16) QX_NOEXCEPT;
int cs_mem2md5str(const void *data, int32_t length, char *out33) QX_NOEXCEPT;
int csid_parse(const char *csid, char *name, char *host, int *port) QX_NOEXCEPT;

QX_END

#endif
