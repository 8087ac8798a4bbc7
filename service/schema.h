/*
 * The schema translator.
 */
#ifndef SERVICE_SCHEMA_H
#define SERVICE_SCHEMA_H

#include <qxapi/qxapi.h>

QX_BEGIN

int schema_translate_init(const char *path) QX_NOEXCEPT;
void schema_translate_terminate(void) QX_NOEXCEPT;
char *schema_name(void) QX_NOEXCEPT;
char *schema_translate_soifattribute(const char *attribute, char *out) QX_NOEXCEPT;
int32_t schema_translate_soifattr2datatype(const char *attribute) QX_NOEXCEPT;
char *schema_translate_tblcol(const char *tblcol, char *out) QX_NOEXCEPT;
char *schema_translate_col(const char *column, char *out) QX_NOEXCEPT;
char *schema_translate_soif2rdbms(const char *list, char **out) QX_NOEXCEPT;
int32_t schema_systables(const char *tblcols, char ***out) QX_NOEXCEPT;
char *schema_translate_alljoin(const char *tblcols) QX_NOEXCEPT;
void schema_soifattrs(char ***out, int32_t *count) QX_NOEXCEPT;
void schema_tblcols(char ***out, int32_t *count) QX_NOEXCEPT;

QX_END

#endif
